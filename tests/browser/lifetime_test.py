"""Instances that end while the link is busy."""
from harness import BrowserTestCase


class LifetimeTest(BrowserTestCase):
    def test_reload_and_navigation_while_texts_are_in_flight(self):
        browser = self.open("travel&2")
        self.expect_travel(browser.report, 2)
        self.assertEqual(0, browser.wait())
        log = self.profile.log.read_text(errors="replace")
        self.assertGreaterEqual(log.count("~PluginObject"), 3, "an instance was not destroyed")

    def test_the_element_removed_inside_its_own_callback(self):
        browser = self.open("removed")
        self.expect_removed(browser.report)
        self.assertEqual(0, browser.wait())

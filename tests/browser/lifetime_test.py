"""Instances that end while the link is busy."""
from harness import BrowserTestCase


class LifetimeTest(BrowserTestCase):
    def test_reload_and_navigation_while_texts_are_in_flight(self):
        browser = self.open("travel")
        self.assertEqual([0, 1, 2], [browser.report("visit") for _ in range(3)])
        self.assertEqual(["hello from the next page", 0], browser.report("arrived"))
        self.assertEqual(0, browser.wait())
        log = self.profile.log.read_text(errors="replace")
        self.assertGreaterEqual(log.count("~PluginObject"), 3, "an instance was not destroyed")

    def test_the_element_removed_inside_its_own_callback(self):
        browser = self.open("removed")
        for moment in ('["f-connect"', '["f-ready"', '["qw"'):
            self.assertEqual([moment, "undefined", 0], browser.report("removed"))
        self.assertEqual("a new element works", browser.report("after"))
        self.assertEqual(0, browser.wait())

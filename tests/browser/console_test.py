"""The example console page and its wrapper around the plug-in."""
from harness import BrowserTestCase, both_places
from server import CONSOLE


class Cases(BrowserTestCase):
    def test_the_wrapper_from_opening_to_closing(self):
        browser = self.open("wrapper.html")
        self.assertEqual([True, "missing"], browser.report("missing"))
        self.assertEqual("closed", browser.report("early"))
        self.assertEqual(["ready", "none", "5.1.7.0", ["port file", "connect", "connected"],
                          ["connecting", "ready"]], browser.report("ready"))
        self.assertTrue(browser.report("echo"))
        self.assertEqual([True, "plugin", "Method call not allowed"], browser.report("plugin"))
        self.assertEqual(["reconnect", [True, "dead"], ["kill", "f-dead", "f-killed"]],
                         browser.report("killed"))
        self.assertEqual(["ready", True], browser.report("reconnected"))
        self.assertEqual([[True, "closed"], "closed", [True, "closed"]], browser.report("closed"))
        self.assertEqual(0, browser.wait())

    def test_the_console_shows_the_link_and_obeys_its_user(self):
        self.add_user()
        browser = self.open("with-user.html")
        self.assertGreaterEqual(browser.report("lamps"), 4)
        self.assertEqual(["typed <b>text</b>"] * 2, browser.report("filtered"))
        self.assertEqual([False, False], browser.report("killed"))
        self.assertTrue(browser.report("again"))
        self.assertEqual(0, browser.wait())

    def test_the_console_says_so_when_its_address_is_refused(self):
        self.add_user()
        options = self.profile.folder / "options"
        options.write_text("plugin_enable_corp_host=0\n")
        browser = self.open("with-user.html?refused")
        self.assertEqual(["refused", False], browser.report("notice"))
        self.assertEqual(0, browser.wait())

    def add_user(self):
        page = (CONSOLE / "index.html").read_text(encoding="utf-8")
        page = page.replace("</body>", '<script src="user.js"></script></body>')
        self.server.answers["/with-user.html"] = page.encode()


OwnProcessConsoleTest, PageProcessConsoleTest = both_places("ConsoleTest", Cases)
del Cases

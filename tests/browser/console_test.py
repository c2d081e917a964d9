"""The example console page and its wrapper around the plug-in."""
from harness import BrowserTestCase
from server import CONSOLE


class ConsoleTest(BrowserTestCase):
    def test_the_wrapper_from_opening_to_closing(self):
        browser = self.open("wrapper")
        for name, expected in {
            "missing": [True, "missing"], "early": [True, "closed"],
            "ready": ["ready", "none", "5.1.7.0", ["port file", "connect", "connected"],
                      ["connecting", "ready"], True],
            "plugin": [True, "plugin"],
            "elements": ["no error", "ready", "no error"] * 2
            + [[True, "hidden"], "hidden", "no error"],
            "killed": ["reconnect", [True, "dead"], ["kill", "f-dead", "f-killed"]],
            "reconnected": ["ready", True],
            "closed": [[True, "closed"], "closed", [True, "closed"]],
        }.items():
            self.assertEqual(expected, browser.report(name), name)
        self.assertEqual(0, browser.wait())

    def test_the_survivor_answers_every_question(self):
        browser = self.open("survivor")
        for question in ("at once", "it crashes", "it is hidden", "it is moved", "it is killed"):
            self.assertEqual(question, browser.report("answer"))
        self.assertEqual(0, browser.wait())

    def test_the_console_shows_the_link_and_obeys_its_user(self):
        browser = self.open_console("?play")
        self.assertGreaterEqual(browser.report("lamps"), 4)
        self.assertEqual(["typed <b>text</b>"] * 2, browser.report("filtered"))
        self.assertEqual([False, False], browser.report("killed"))
        self.assertEqual(0, browser.wait())

    def test_the_console_has_a_button_for_an_engine_that_was_not_there(self):
        options = self.profile.folder / "options"
        right = options.read_text(encoding="utf-8")
        options.write_text(right.replace("/engine\n", "/nowhere\n"), encoding="utf-8")
        browser = self.open_console("?stuck")
        self.assertEqual("No engine comes up", browser.report("stuck"))
        options.write_text(right, encoding="utf-8")
        self.assertTrue(browser.report("ready"))
        self.assertEqual(0, browser.wait())

    def test_the_console_says_so_when_its_address_is_refused(self):
        self.profile.write_options(plugin_enable_corp_host=0)
        browser = self.open_console("?refused")
        *notice, newer = browser.report("notice")
        # A newer engine does not list its plug-ins: the page cannot tell whether one is there.
        self.assertEqual(["missing" if newer else "refused", False, True], notice)
        self.assertEqual(0, browser.wait())

    def open_console(self, words):
        page = (CONSOLE / "index.html").read_text(encoding="utf-8")
        page = page.replace("</body>", '<script src="user.js"></script></body>')
        self.server.answers["/with-user.html"] = page.encode()
        return self.open(words, page="with-user.html")

"""Whole sessions between pages and the stand-in engine."""
import os
import signal

from harness import BrowserTestCase, both_places
from server import HERE


class Cases(BrowserTestCase):
    def test_a_session_from_no_engine_to_the_page_killing_it(self):
        browser = self.open((HERE / "pages" / "session.html", "https://meet.murmel.example/room?x"))
        status = browser.report("status")
        self.assertEqual('["f-connect",{"error":-1,"step":"0"}]', status[0])
        self.assertEqual('["f-connect",{"step":"2"}]', status[1])
        self.assertEqual(['["f-connect",{"step":"0"}]', '["f-connect",{"step":"1"}]',
                          '["f-connect",{"step":"3"}]', '["f-ready"]'], status[-4:])
        self.assertEqual(1, len(self.profile.engines()))
        for kind in ("ascii", "unicode", "raw unicode"):
            self.assertTrue(browser.report(kind), kind)
        self.assertEqual(["Invalid argument type for method send"] * 4, browser.report("no text"))
        self.assertTrue(browser.report("long"))
        self.assertGreaterEqual(browser.report("large"), 200000)
        self.assertEqual(300, browser.report("in order"))
        self.assertEqual(1, browser.report("queued"))
        self.assertEqual(['["f-dead"]', '["f-killed"]'], browser.report("after kill"))
        self.wait_until(lambda: not self.profile.engines(), "the end of the engine")
        self.assertEqual(0, browser.wait())

    def test_an_engine_killed_under_a_page_is_started_again(self):
        browser = self.open("survivor.html")
        browser.report("alive")
        (engine,) = self.profile.engines()
        os.kill(engine, signal.SIGKILL)
        browser.report("dead")
        self.assertEqual("after the restart", browser.report("again"))
        self.assertEqual(0, browser.wait())
        (successor,) = self.profile.engines()
        self.assertNotEqual(engine, successor)

    def test_of_two_pages_that_start_at_once_each_gets_its_own_answers(self):
        browser = self.open("own.html?left", "own.html?right")
        got = [browser.report("got"), browser.report("got")]
        self.assertCountEqual([[f"left {i}" for i in range(50)], [f"right {i}" for i in range(50)]],
                              got)


OwnProcessSessionTest, PageProcessSessionTest = both_places("SessionTest", Cases)
del Cases

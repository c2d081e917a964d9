"""Whole sessions between pages and the stand-in engine."""
import os
import signal

from harness import PAGE, BrowserTestCase


class SessionTest(BrowserTestCase):
    def test_a_session_from_no_engine_over_its_death_to_the_page_killing_it(self):
        browser = self.open((PAGE, "https://meet.murmel.example/room?session"))
        status = browser.report("status")
        self.assertEqual(['["f-connect",{"error":-1,"step":"0"}]', '["f-connect",{"step":"2"}]'],
                         status[:2])
        self.assertEqual(['["f-connect",{"step":"0"}]', '["f-connect",{"step":"1"}]',
                          '["f-connect",{"step":"3"}]', '["f-ready"]'], status[-4:])
        self.assertEqual([True] * 5, browser.report("echoes"))
        self.assertEqual(["Invalid argument type for method send"] * 4, browser.report("no text"))
        self.assertEqual("http://a/\ufffd.", browser.report("noncharacter"))
        self.assertEqual([True, 300, 1], browser.report("in order"))
        browser.report("alive")
        (engine,) = self.profile.engines()
        os.kill(engine, signal.SIGKILL)
        self.assertEqual("after the restart", browser.report("again"))
        self.assertEqual(['["f-dead"]', '["f-killed"]'], browser.report("after kill"))
        first, second = browser.report("engines")
        self.assertTrue(engine == first != second, (engine, first, second))
        self.wait_until(lambda: not self.profile.engines(), "the end of the engine")
        self.assertEqual(0, browser.wait())

    def test_pages_that_run_at_once_get_their_own_answers_and_one_closes_under_another(self):
        browser = self.open("own&first", "own&second")
        expected = [[f"{name} {i}" for i in range(50)] for name in ("first", "second", "child")]
        self.assertCountEqual([*expected, ["still here"]], [browser.report("got") for _ in range(4)])

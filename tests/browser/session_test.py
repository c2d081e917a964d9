"""Whole sessions between pages and the stand-in engine."""
from harness import PAGE, BrowserTestCase


class SessionTest(BrowserTestCase):
    def test_a_session_from_no_engine_over_its_death_to_the_page_killing_it(self):
        browser = self.open((PAGE, "https://meet.murmel.example/room?session"))
        self.expect_session(browser.report, "Invalid argument type for method send")
        self.assertEqual(0, browser.wait())

    def test_pages_that_run_at_once_get_their_own_answers_and_one_closes_under_another(self):
        browser = self.open("own&first", "own&second")
        expected = [[f"{name} {i}" for i in range(50)] for name in ("first", "second", "child")]
        self.assertCountEqual([*expected, ["still here"]], [browser.report("got") for _ in range(4)])

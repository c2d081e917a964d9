"""Sessions, and long and crowded lives: the scenes of the module's tests, and some of their own."""
import contextlib
import os
import signal
import time

from harness import HOST, BrowserTestCase


class LifeTest(BrowserTestCase):
    # Until here there is neither engine nor connector.
    def test_1_twenty_pages_at_once_share_one_connector_and_one_engine(self):
        self.open("tabs", 20)
        self.assertEqual(20, self.report("ready"))
        self.assertEqual((1, 1), (len(self.profile.connectors()), len(self.profile.engines())))

    def test_2_the_modules_session_has_the_same_reports_in_the_same_order(self):
        for engine in self.profile.engines():
            os.kill(engine, signal.SIGTERM)
        self.wait_until(lambda: not self.profile.engines(), "the end of the engine")
        self.open("session", page="page.html")
        # The browser does not refuse these here; U+FFFD stands in their place.
        self.expect_session(self.report, no_text="nothing thrown")

    def test_the_wrapper_from_opening_to_closing(self):
        self.open("wrapper", page="page.html")
        for name, expected in {
            "missing": [True, "missing"], "early": [True, "closed"],
            "ready": ["ready", "none", "5.1.7.0", ["port file", "connect", "connected"],
                      ["connecting", "ready"], True],
            "plugin": [True, "plugin"],
            "elements": ["no error", "ready", "no error"] * 3,
        }.items():
            self.assertEqual(expected, self.report(name), name)
        # The module kills before send() returns; here the echo of the text before may be faster.
        hint, _, order = self.report("killed")
        self.assertEqual(["reconnect", "kill", "f-dead", "f-killed"],
                         [hint, *(kind for kind in order if kind != "echo")])
        self.assertEqual(["ready", True], self.report("reconnected"))
        self.assertEqual([[True, "closed"], "closed", [True, "closed"]], self.report("closed"))

    def test_the_survivor_answers_every_question(self):
        self.open("survivor", page="page.html")
        for question in ("at once", "it crashes", "it is hidden", "it is moved", "it is killed"):
            self.assertEqual(question, self.report("answer"))

    def test_reload_and_navigation_while_texts_are_in_flight(self):
        self.open("travel", 30, page="page.html")
        self.expect_travel(self.report, 30)

    def test_the_engine_fetches_and_posts_and_the_page_uploads_the_log(self):
        self.serve_answers(20000)  # several pieces
        self.open("network", f"{HOST}:{self.server.http_port}", page="page.html")
        self.expect_network(self.report, HOST, "http/1.1 200 ok")
        # Nobody listens where the crash reports go, but the request was made.
        self.assertEqual([100, 2], (lambda r: [r[1], r[2]["error"]])(self.report("uploaded")))
        self.assertRegex(self.profile.log.read_text(errors="replace"),
                         "UploadBrowserPluginLog message with qw info:")


class EndTest(BrowserTestCase):
    def test_no_connector_outlives_a_browser_that_is_killed(self):
        self.open("survives", 1)
        self.report("alive")
        self.assertEqual(1, len(self.profile.connectors()))
        self.process.kill()
        for pid in self.profile.processes():
            if pid not in (*self.profile.connectors(), *self.profile.engines()):
                with contextlib.suppress(ProcessLookupError):
                    os.kill(pid, signal.SIGKILL)
        killed = time.monotonic()
        self.wait_until(lambda: not self.profile.connectors(), "the connector's end")
        self.assertLess(time.monotonic() - killed, 2)

"""Sessions, and long and crowded lives: the scenes of the module's tests, and some of their own."""
import contextlib
import os
import signal
import time

from harness import HOST, BrowserTestCase

POSTED = "bin\0\x01\r\n\xff\U0001f3a7end"


class LifeTest(BrowserTestCase):
    # Until here there is neither engine nor connector.
    def test_1_twenty_pages_at_once_share_one_connector_and_one_engine(self):
        self.open("tabs", 20, page="life.html")
        self.assertEqual(20, self.report("ready"))
        self.assertEqual((1, 1), (len(self.profile.connectors()), len(self.profile.engines())))

    def test_2_the_modules_session_has_the_same_reports_in_the_same_order(self):
        for engine in self.profile.engines():
            os.kill(engine, signal.SIGTERM)
        self.wait_until(lambda: not self.profile.engines(), "the end of the engine")
        self.open("session", page="page.html")
        status = self.report("status")
        self.assertEqual(['["f-connect",{"error":-1,"step":"0"}]', '["f-connect",{"step":"2"}]'],
                         status[:2])
        self.assertEqual(['["f-connect",{"step":"0"}]', '["f-connect",{"step":"1"}]',
                          '["f-connect",{"step":"3"}]', '["f-ready"]'], status[-4:])
        self.assertEqual([True] * 5, self.report("echoes"))
        # The browser does not refuse these here; U+FFFD stands in their place.
        self.assertEqual(["nothing thrown"] * 4, self.report("no text"))
        self.assertEqual("http://a/\ufffd.", self.report("noncharacter"))
        self.assertEqual([True, 300, 1], self.report("in order"))
        self.report("alive")
        (engine,) = self.profile.engines()
        os.kill(engine, signal.SIGKILL)
        self.assertEqual("after the restart", self.report("again"))
        self.assertEqual(['["f-dead"]', '["f-killed"]'], self.report("after kill"))
        first, second = self.report("engines")
        self.assertTrue(engine == first != second, (engine, first, second))
        self.wait_until(lambda: not self.profile.engines(), "the end of the engine")

    def test_the_wrapper_from_opening_to_closing(self):
        self.open("wrapper", page="page.html")
        for name, expected in {
            "missing": [True, "missing"], "early": [True, "closed"],
            "ready": ["ready", "none", "5.1.7.0", ["port file", "connect", "connected"],
                      ["connecting", "ready"], True],
            "plugin": [True, "plugin"],
        }.items():
            self.assertEqual(expected, self.report(name), name)
        # The module kills before send() returns; here the echo of the text before may be faster.
        hint, _, order = self.report("killed")
        self.assertEqual(["reconnect", "kill", "f-dead", "f-killed"],
                         [hint, *(kind for kind in order if kind != "echo")])
        self.assertEqual(["ready", True], self.report("reconnected"))
        self.assertEqual([[True, "closed"], "closed", [True, "closed"]], self.report("closed"))

    def test_reload_and_navigation_while_texts_are_in_flight(self):
        self.open("travel", page="page.html")
        self.assertEqual([0, 1, 2], [self.report("visit") for _ in range(3)])
        self.assertEqual(["hello from the next page", 0], self.report("arrived"))
        self.open("reloads", 30, page="life.html")
        self.assertEqual("after the last", self.report("echo"))

    def test_a_connector_that_dies_again_and_again(self):
        self.open("deaths", 20, page="life.html")
        for number in range(20):
            self.assertEqual(number, self.report("alive"))
            (connector,) = self.profile.connectors()
            os.kill(connector, signal.SIGKILL)
            killed = time.monotonic()
            self.assertEqual(number, self.report("dead"))
            self.assertLess(time.monotonic() - killed, 1)
        self.assertEqual("after the last", self.report("echo"))

    def test_the_engine_fetches_and_posts_and_the_page_uploads_the_log(self):
        answer = "zero\0, ä, \U0001f3a7, " * 20000
        self.server.answers["/answer.txt"] = answer.encode()
        self.server.answers["/odd.txt"] = b"cut \xf0\x9f, stray \xff, noncharacter \xef\xbf\xbf."
        self.open("network", f"{HOST}:{self.server.http_port}", page="page.html")
        for body in (answer, POSTED):
            _, _, about, headers, text = self.report("answer")
            self.assertEqual(0, about["error"])
            self.assertTrue(about["url"].startswith(f"http://{HOST}:{self.server.http_port}/"))
            self.assertRegex(headers, r"^HTTP/1.1 200 OK\n(.*\n)*content-length: \d+\n")
            self.assertEqual(body, text)
        self.assertRegex(self.report("answer")[4],
                         "^cut \ufffd+, stray \ufffd+, noncharacter \ufffd+[.]$")
        # A verb that is not served, and a connection that is refused.
        self.assertEqual([3, 2], [self.report("answer")[2]["error"] for _ in range(2)])
        asked = {(method, path): (headers, body)
                 for method, path, headers, body in self.server.requests}
        self.assertEqual("yes", asked["GET", "/answer.txt?a=1"][0]["x-test"])
        self.assertEqual(POSTED.encode(), asked["POST", "/post"][1])
        # Nobody listens where the crash reports go, but the request was made.
        self.assertEqual([100, 2], (lambda r: [r[1], r[2]["error"]])(self.report("uploaded")))
        self.assertRegex(self.profile.log.read_text(errors="replace"),
                         "UploadBrowserPluginLog message with qw info:")


class EndTest(BrowserTestCase):
    def test_no_connector_outlives_a_browser_that_is_killed(self):
        self.open("stays", page="life.html")
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

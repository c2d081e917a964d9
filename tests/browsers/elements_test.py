"""What pages see of the extension."""
import contextlib
import os
import pathlib
import signal
import time

from harness import KIND, BrowserTestCase

FIRST = ["plug-in 5.1.7.0", '["f-ready"]']


class ElementsTest(BrowserTestCase):
    def test_the_page_of_the_readme_runs_unchanged(self):
        self.open("readme")
        log = self.report("log")
        self.assertEqual(FIRST, log[:2])
        self.assertIn('["echo","hello"]', log)

    def test_a_page_reads_enumerates_and_gets_every_refusal_as_an_error(self):
        self.open("object", page="page.html")
        self.expect_object(self.report)

    def test_texts_of_every_kind_come_back_as_they_are(self):
        self.open("texts")
        self.assertEqual([], self.report("wrong"))
        self.assertEqual("half \ufffd of a pair \ufffd", self.report("half"))

    def test_elements_work_however_they_were_made(self):
        self.open("elements")
        for name in ("made by script", "object", "by markup", "cloned", "open", "closed", "declared"):
            self.assertIs(True, self.report(name), name)
        self.assertEqual(["hidden", "hidden"], self.report("hidden"))
        self.assertIs(True, self.report("in a frame"))
        self.assertIs(True, self.report("given to a frame"))
        self.assertEqual(["undefined", "undefined", "function"], self.report("outside"))
        self.assertEqual('["f-ready"]', self.report("put in later"))

    def test_an_element_that_was_moved_is_a_new_one(self):
        self.open("moved")
        self.assertEqual([[name, None, "Send returned false", True, 0]
                          for name in ("itself", "its parent", "its host")], self.report("moved"))
        self.assertEqual(["undefined", True], self.report("other type"))
        self.assertEqual([None, True], self.report("type again"))

    def test_a_callback_may_do_anything_to_its_element(self):
        self.open("reentrance")
        for name in ("clears", "throws", "replaces", "sends", "moves", "removes", "kills"):
            self.assertEqual([name, 1], self.report("did"))
        self.assertEqual([], self.report("uncaught by the page"))
        self.assertIs(True, self.report("still works"))

    def test_the_element_removed_inside_its_own_callback(self):
        self.open("removed", page="page.html")
        self.expect_removed(self.report)

    def test_other_elements_are_the_browsers_own(self):
        self.open("others")
        self.assertEqual([["object"], "function", 5, "any", None, "undefined", None, True],
                         self.report("others"))

    def test_frames_and_pages_that_are_not_served_get_nothing(self):
        self.open("sandboxed")
        self.assertEqual(["undefined", "undefined", 0], self.report("sandboxed"))
        for host, scheme in (("elsewhere.example", "https"), ("corp.murmel.example", "https"),
                             ("www.murmel.example", "http")):
            self.open("refused", host=host, scheme=scheme)
            self.assertEqual(["undefined", "undefined", False], self.report("refused"), host)
        self.open("object", page="page.html", scheme="http")
        self.assertEqual("5.1.7.0", self.report("seen")[0])

    def test_a_page_that_comes_back_is_told_that_its_link_is_gone(self):
        self.open("away")
        if not self.report("left"):
            self.skipTest(f"this browser does not keep the page: {self.report('loaded anew')}")
        self.assertEqual(['["f-dead"]', "Send returned false"], self.report("told"))
        self.assertIs(True, self.report("again"))

    def test_a_page_finds_no_way_to_links_of_others(self):
        self.open("forges")
        self.assertEqual([], self.report("seen"))
        self.assertEqual([], self.report("heard"))
        self.assertIs(True, self.report("not taken"))
        self.assertEqual(["undefined", "undefined"], self.report("the extension"))
        self.assertEqual("still here", self.report("still works"))

    def test_requests_are_redirected_may_be_large_and_go_to_no_other_host(self):
        port = self.server.http_port
        self.server.answers.update({"/answer.txt": b"an answer", "/empty.txt": b""})
        self.open("requests", port)
        self.assertEqual([0, 784111777, f"http://www.murmel.example:{port}/answer.txt", "an answer"],
                         self.report("answer"))
        self.assertNotIn("cookie", [name.lower() for name in self.server.requests[-1][2]])
        self.assertEqual(3_000_000, self.report("answer")[3])
        error, _, _, body = self.report("answer")
        self.assertEqual((0, None), (error, body))
        for _ in range(2):
            self.assertEqual(3, self.report("answer")[0])

    def test_a_large_text_lets_another_links_small_ones_pass(self):
        self.open("large", 10_000_000)
        same, count = self.report("large")
        self.assertTrue(same)
        self.assertGreater(count, 20)  # a large text is some hundred pieces

# Says hello with another version, and waits for its end.
OTHER_CONNECTOR = """#!/usr/bin/env python3
import struct, sys
hello = b'{"type":"hello","version":"5.0.0.1"}'
sys.stdout.buffer.write(struct.pack("=I", len(hello)) + hello)
sys.stdout.buffer.flush()
sys.stdin.buffer.read()
"""


def background_processes():
    """Those that run extensions, in a process namespace with one browser."""
    found = []
    for entry in filter(str.isdigit, os.listdir("/proc")):
        with contextlib.suppress(OSError):  # it ended while we looked
            proc = pathlib.Path("/proc", entry)
            if (b"--extension-process" in (proc / "cmdline").read_bytes()
                    or (proc / "comm").read_text() == "WebExtensions\n"):
                found.append(int(entry))
    return found


class FailureTest(BrowserTestCase):
    def test_links_come_back_after_every_death(self):
        self.open("survives", 20)
        for number in range(20):
            self.assertEqual(number, self.report("alive"))
            before = self.profile.connectors()
            (victim,) = background_processes() if number == 10 else before
            os.kill(victim, signal.SIGKILL)
            killed = time.monotonic()
            self.report("dead")
            self.assertLess(time.monotonic() - killed, 1)
        self.assertEqual([20, "after the last"], self.report("back"))
        self.assertNotEqual(before, self.profile.connectors())

    def test_a_page_is_told_what_to_do(self):
        idle = (lambda: not self.profile.connectors(), "the end of the connector that nobody uses")
        other = self.profile.path / "other-connector"
        other.write_text(OTHER_CONNECTOR)
        other.chmod(0o700)
        for code, words, prepare in (
                ("version-mismatch", r"5\.1\.7\.0.*5\.0\.0\.1",
                 lambda: self.profile.register(path=str(other))),
                ("connector-missing", "--register", self.profile.unregister),
                ("connector-missing", "--register",
                 lambda: self.profile.register(path="/nonexistent/mpbp-connector")),
                ("connector-refused" if KIND == "chromium" else "connector-missing", "--register",
                 lambda: self.profile.register(allowed_origins=["chrome-extension://" + "a" * 32 + "/"],
                                               allowed_extensions=["other@murmel.example"])),
                ("page-refused", "", lambda: (self.profile.register(), self.profile.write_options()))):
            self.wait_until(*idle)
            prepare()
            self.open("fails")
            for _ in range(2):
                is_error, got, message, thrown, texts = self.report("error")
                self.assertEqual((True, code, "Send returned false", []), (is_error, got, thrown, texts))
                self.assertRegex(message, words + r".*\.$")
        self.profile.write_options(plugin_enable_corp_host=1)

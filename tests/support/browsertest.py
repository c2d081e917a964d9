"""What the tests in real browsers share, the module's and the extension's."""
import contextlib
import os
import pathlib
import shutil
import signal
import tempfile
import time
import unittest

from server import TOP

BUILD = pathlib.Path(os.environ.get("MPBP_BUILD_DIR", TOP / "build"))
CORP_HOST = "page.corp.murmel.example"
TIMEOUT = 40  # seconds to wait for anything at all; a loaded machine is slow


class Profile:
    """A temporary home, with a configuration folder and the plug-in's options in it."""

    def __init__(self, log="mpbppapiplugin.log"):
        self.path = pathlib.Path(tempfile.mkdtemp(prefix="mpbp-browser-test-"))
        self.folder = self.path / "murmel-murmelparlplugin"
        self.folder.mkdir(mode=0o700)
        self.log = self.folder / log
        self.write_options(plugin_enable_corp_host=1)

    def remove(self):
        shutil.rmtree(self.path, ignore_errors=True)

    def write_options(self, **options):
        lines = [f"{name}={value}\n" for name, value in options.items()]
        (self.folder / "options").write_text(
            f"install_dir={BUILD}/engine\npluginppapi_log_level=LS_VERBOSE\n" + "".join(lines))

    def processes(self, comm=""):
        """The live processes that were started with this profile and whose name begins so."""
        mark = b"XDG_CONFIG_HOME=" + os.fsencode(self.path)
        found = []
        for entry in filter(str.isdigit, os.listdir("/proc")):
            with contextlib.suppress(OSError):  # it ended while we looked
                proc = pathlib.Path("/proc", entry)
                if (mark in (proc / "environ").read_bytes().split(b"\0")
                        and (proc / "comm").read_text().startswith(comm)):
                    found.append(int(entry))
        return found

    def engines(self):
        return self.processes("MurmelParlPlugin"[:15])


class SceneTestCase(unittest.TestCase):
    """What pages report of the scenes of tests/browser/pages/scenes.js, in every browser.

    A subclass has `profile` and `server`. `report` is what a page reported next under a name.
    """

    def wait_until(self, condition, what):
        deadline = time.monotonic() + TIMEOUT
        while not condition():
            self.assertLess(time.monotonic(), deadline, "not in time: " + what)
            time.sleep(0.02)

    def expect_object(self, report):
        # A loop over the names asks the plug-in about every name of the element; a browser engine
        # never asks the module for a list.
        self.assertEqual(["5.1.7.0", "5.1.7.0", True, "undefined", "undefined",
                          ["onmessage", "onerror", "version", "send"]], report("seen"))
        self.assertEqual(["cannot set property version",
                          "Passed unexpected type for onmessasge_callback",
                          "Passed unexpected type for onerror_callback",
                          *["Invalid argument count for method send"] * 2,
                          "Invalid argument type for method send",
                          "Method call not allowed", "Send returned false"], report("thrown"))
        self.assertEqual([True, "nothing thrown", None, "nothing thrown", "undefined"],
                         report("handlers"))

    def expect_session(self, report, no_text):
        status = report("status")
        self.assertEqual(['["f-connect",{"error":-1,"step":"0"}]', '["f-connect",{"step":"2"}]'],
                         status[:2])
        self.assertEqual(['["f-connect",{"step":"0"}]', '["f-connect",{"step":"1"}]',
                          '["f-connect",{"step":"3"}]', '["f-ready"]'], status[-4:])
        self.assertEqual([True] * 5, report("echoes"))
        self.assertEqual([no_text] * 4, report("no text"))
        self.assertEqual("http://a/\ufffd.", report("noncharacter"))
        self.assertEqual([True, 300, 1], report("in order"))
        report("alive")
        (engine,) = self.profile.engines()
        os.kill(engine, signal.SIGKILL)
        self.assertEqual("after the restart", report("again"))
        self.assertEqual(['["f-dead"]', '["f-killed"]'], report("after kill"))
        first, second = report("engines")
        self.assertTrue(engine == first != second, (engine, first, second))
        self.wait_until(lambda: not self.profile.engines(), "the end of the engine")

    def expect_removed(self, report):
        for moment in ('["f-connect"', '["f-ready"', '["qw"'):
            self.assertEqual([moment, "undefined", 0], report("removed"))
        self.assertEqual("a new element works", report("after"))

    def expect_travel(self, report, reloads):
        visits = list(range(reloads + 1))
        self.assertEqual(visits, [report("visit") for _ in visits])
        self.assertEqual(["hello from the next page", 0], report("arrived"))

    def serve_answers(self, length):
        """What the scene `network` asks for."""
        # With NUL bytes and characters of every length.
        self.server.answers["/answer.txt"] = ("zero\0, ä, \U0001f3a7, " * length).encode()
        self.server.answers["/odd.txt"] = b"cut \xf0\x9f, stray \xff, noncharacter \xef\xbf\xbf."

    def expect_network(self, report, host, first_line):
        posted = "bin\0\x01\r\n\xff\U0001f3a7end"
        answer = self.server.answers["/answer.txt"].decode()
        for body in (answer, posted):
            _, _, about, headers, text = report("answer")
            self.assertEqual(0, about["error"])
            self.assertTrue(about["url"].startswith(f"http://{host}:{self.server.http_port}/"))
            self.assertRegex(headers.lower(), f"^{first_line}\n(.*\n)*content-length: \\d+")
            self.assertEqual(body, text)
        # What the browser takes for no text must not cost the page the whole answer.
        self.assertRegex(report("answer")[4], "^cut \ufffd+, stray \ufffd+, noncharacter \ufffd+[.]$")
        # A verb that is not served, and a connection that is refused.
        self.assertEqual([3, 2], [report("answer")[2]["error"] for _ in range(2)])
        asked = {(method, path): ({name.lower(): value for name, value in headers.items()}, body)
                 for method, path, headers, body in self.server.requests}
        self.assertEqual("yes", asked["GET", "/answer.txt?a=1"][0]["x-test"])
        self.assertEqual(posted.encode(), asked["POST", "/post"][1])

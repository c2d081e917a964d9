"""What the browser tests share: a profile, a loopback server, and the browser under control."""
import json
import os
import pathlib
import queue
import re
import shutil
import signal
import subprocess
import tempfile
import threading
import time
import unittest

from server import HERE, Server

BUILD = pathlib.Path(os.environ.get("MPBP_BUILD_DIR", HERE.parent.parent / "build"))
MODULE = os.environ.get("MPBP_MODULE", str(BUILD / "libmpbppapiplugin.so"))
ENGINE_DIR = BUILD / "engine"
ENGINE_COMM = "MurmelParlPlugin"[:15]
CORP_HOST = "page.corp.murmel.example"
# Seconds to wait for anything at all; a loaded machine is slow.
TIMEOUT = float(os.environ.get("MPBP_TEST_SECONDS", "40"))
LINE = re.compile(r"^\[page (\d+) (\S+)(?: [^\]]*)?\] (.*)$")


class Profile:
    """A temporary configuration folder with the plug-in's options in it."""

    def __init__(self):
        self.path = pathlib.Path(tempfile.mkdtemp(prefix="mpbp-browser-test-"))
        self.folder = self.path / "murmel-murmelparlplugin"
        self.folder.mkdir(mode=0o700)
        self.log = self.folder / "mpbppapiplugin.log"
        self.port_file = self.folder / "murmelparlplugin_port"
        options = {"install_dir": ENGINE_DIR, "plugin_enable_corp_host": 1,
                   "pluginppapi_log_level": "LS_VERBOSE"}
        lines = [f"{name}={value}\n" for name, value in options.items()]
        (self.folder / "options").write_text("".join(lines), encoding="utf-8")

    def processes(self, comm=""):
        """The live processes that were started with this profile and whose name begins so."""
        mark = b"XDG_CONFIG_HOME=" + os.fsencode(self.path)
        found = []
        for entry in os.listdir("/proc"):
            try:
                proc = pathlib.Path("/proc", entry)
                if entry.isdigit() and mark in (proc / "environ").read_bytes().split(b"\0"):
                    if (proc / "comm").read_text().startswith(comm):
                        found.append(int(entry))
            except OSError:
                pass  # it ended while we looked
        return found

    def engines(self):
        return self.processes(ENGINE_COMM)


class Browser:
    """A running mpbp-browser. Its console lines are read in the background."""

    def __init__(self, profile, arguments, in_process=False):
        self.record = profile.path / "processes"
        wrapper = HERE / "record_end.py"
        environment = dict(os.environ, MPBP_PROCESS_RECORD=str(self.record), HOME=str(profile.path))
        environment["QTWEBENGINE_CHROMIUM_FLAGS"] = (
            f"--ppapi-plugin-launcher={wrapper} --renderer-cmd-prefix={wrapper}")
        command = [str(BUILD / "mpbp-browser"), "--headless", "--profile", str(profile.path),
                   "--module", MODULE]
        command += ["--in-process"] * in_process + [str(word) for word in arguments]
        self.process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                        encoding="utf-8", errors="replace")
        self.output = []
        self._lines = queue.Queue()
        self._reader = threading.Thread(target=self._read)
        self._reader.start()

    def _read(self):
        for line in self.process.stdout:
            self.output.append(line)
            self._lines.put(line.rstrip("\n"))
        self._lines.put(None)

    def line(self, deadline):
        """(page, event, text) of the next line; None at the end of the output."""
        try:
            line = self._lines.get(timeout=max(0.01, deadline - time.monotonic()))
        except queue.Empty:
            raise AssertionError("the browser printed nothing more in time:\n" + self.said()) from None
        if line is None:
            return None
        match = LINE.match(line)
        return (int(match[1]), match[2], match[3]) if match else (0, "", line)

    def report(self, name):
        """The value that a page reported under `name`; whatever it prints before is skipped."""
        deadline = time.monotonic() + TIMEOUT
        while (line := self.line(deadline)) is not None:
            _, _, text = line
            if text.startswith("uncaught: "):
                raise AssertionError(text + "\n" + self.said())
            if text.startswith(f"report {name} "):
                return json.loads(text.removeprefix(f"report {name} "))
        raise AssertionError(f"the browser ended without a report of {name}:\n" + self.said())

    def said(self):
        return "".join(self.output[-60:])

    def wait(self):
        """The exit status, after the end by itself."""
        try:
            return self.process.wait(TIMEOUT)
        except subprocess.TimeoutExpired:
            raise AssertionError("the browser does not end:\n" + self.said()) from None

    def stop(self):
        """Ends the browser as its user would with Ctrl-C, unless it has ended."""
        if self.process.poll() is not None:
            return
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(TIMEOUT)
        except subprocess.TimeoutExpired:
            self.process.kill()

    def drain(self):
        """Reads to the end of the output, which an engine started by the module holds open too."""
        self._reader.join()
        self.process.stdout.close()

    def ends(self):
        """{pid: (type, status)} of the page and plug-in processes; status None when it was never told."""
        ends = {}
        for line in self.record.read_text().splitlines():
            word, pid, kind, *status = line.split()
            ends[pid] = (kind, int(status[0]) if word == "end" else None)
        return ends


class BrowserTestCase(unittest.TestCase):
    """Each test has a profile and a server, and leaves nothing behind."""

    in_process = False
    needs_engine = True

    @classmethod
    def setUpClass(cls):
        for file in [BUILD / "mpbp-browser", MODULE] + [ENGINE_DIR / "MurmelParlPlugin"] * cls.needs_engine:
            if not os.path.isfile(file):
                raise AssertionError(f"{file} was not built")
        if cls.needs_engine:
            pass_low_pids()

    def setUp(self):
        self.profile = Profile()
        self.addCleanup(shutil.rmtree, self.profile.path, ignore_errors=True)
        self.server = Server()
        self.addCleanup(self.server.close)
        self.browsers = []
        self.addCleanup(self._end_engines)

    def tearDown(self):
        for browser in self.browsers:
            browser.stop()
        for browser in self.browsers:
            self.assert_clean_end(browser)

    def open(self, *pages, arguments=()):
        """Starts the browser with pages of the server, or with (file, address) pairs."""
        words = ["--map-host", f"{CORP_HOST}=127.0.0.1:{self.server.port}", *arguments]
        for page in pages:
            if isinstance(page, tuple):
                words += ["--page", page[0], "--url", page[1]]
            else:
                words += ["--page", f"http://{CORP_HOST}/{page}"]
        browser = Browser(self.profile, words, self.in_process)
        self.browsers.append(browser)
        return browser

    def wait_until(self, condition, what):
        deadline = time.monotonic() + TIMEOUT
        while not condition():
            self.assertLess(time.monotonic(), deadline, "not in time: " + what)
            time.sleep(0.05)

    def assert_clean_end(self, browser):
        """The page and plug-in processes ended by themselves or because the browser told them to."""
        self.wait_until(lambda: self.profile.processes() == self.profile.engines(),
                        "the end of the browser's processes")
        self.assertLessEqual({status for _, status in browser.ends().values()},
                             {0, -signal.SIGTERM}, f"{browser.ends()}\n{browser.said()}")

    def _end_engines(self):
        for pid in self.profile.engines():
            os.kill(pid, signal.SIGTERM)
        self.wait_until(lambda: not self.profile.engines(), "the end of the engine")
        for browser in self.browsers:
            browser.drain()


def pass_low_pids():
    """Process ids up to 999 never count as engines; on a fresh machine they must be used up."""
    for _ in range(1000):
        pid = os.fork()
        if pid == 0:
            os._exit(0)
        os.waitpid(pid, 0)
        if pid > 999:
            return


def both_places(name, case):
    """The two test classes of `case`: module in a process of its own, and in the page's."""
    return tuple(type(where + name, (case,), {"in_process": in_process, "__module__": case.__module__})
                 for where, in_process in (("OwnProcess", False), ("PageProcess", True)))

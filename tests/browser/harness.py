"""What the browser tests share: a profile, a loopback server, and the browser under control."""
import json
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

from server import HERE, Server

BUILD = pathlib.Path(os.environ.get("MPBP_BUILD_DIR", HERE.parent.parent / "build"))
PROGRAM = os.environ.get("MPBP_BROWSER", BUILD / "mpbp-browser")
MODULE = str(BUILD / "libmpbppapiplugin.so")
# Whether the module runs in the page's process, not in one of its own.
IN_PROCESS = os.environ.get("MPBP_IN_PROCESS") == "1"
PAGE = HERE / "pages" / "page.html"
CORP_HOST = "page.corp.murmel.example"
TIMEOUT = 40  # seconds to wait for anything at all; a loaded machine is slow


class Profile:
    """A temporary configuration folder with the plug-in's options in it."""

    def __init__(self):
        self.path = pathlib.Path(tempfile.mkdtemp(prefix="mpbp-browser-test-"))
        self.folder = self.path / "murmel-murmelparlplugin"
        self.folder.mkdir(mode=0o700)
        self.log = self.folder / "mpbppapiplugin.log"
        self.write_options(plugin_enable_corp_host=1)

    def write_options(self, plugin_enable_corp_host):
        (self.folder / "options").write_text(
            f"install_dir={BUILD}/engine\nplugin_enable_corp_host={plugin_enable_corp_host}\n"
            "pluginppapi_log_level=LS_VERBOSE\n", encoding="utf-8")

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
        return self.processes("MurmelParlPlugin"[:15])


class Browser:
    """A running mpbp-browser, of whichever Qt."""

    def __init__(self, profile, arguments):
        self.record = profile.path / "processes"
        wrapper = HERE / "record_end.py"
        environment = dict(os.environ, MPBP_PROCESS_RECORD=str(self.record), HOME=str(profile.path))
        environment["QTWEBENGINE_CHROMIUM_FLAGS"] = (
            f"--ppapi-plugin-launcher={wrapper} --renderer-cmd-prefix={wrapper}")
        command = [PROGRAM, "--headless", "--profile", profile.path, "--module", MODULE]
        command += ["--in-process"] * IN_PROCESS + list(arguments)
        # Two files: in one, the logs of other processes would cut long console lines in two.
        (console, self.console), (log, self.log) = (
            tempfile.mkstemp(dir=profile.path) for _ in range(2))
        self.process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL,
                                        stdout=console, stderr=log)
        os.close(console)
        os.close(log)
        self.lines_read = 0

    def report(self, name):
        """The value that a page reported under `name`; whatever it prints before is skipped."""
        deadline = time.monotonic() + TIMEOUT
        ended = False
        while not ended and time.monotonic() < deadline:
            ended = self.process.poll() is not None
            for line in self.output(self.console).split("\n")[self.lines_read:-1]:
                self.lines_read += 1
                if "] uncaught: " in line:
                    deadline = 0
                    break
                _, mark, value = line.partition(f"] report {name} ")
                if mark:
                    return json.loads(value)
            time.sleep(0.02)
        raise AssertionError(f"no report of {name}, at its end or in time:\n" + self.said())

    @staticmethod
    def output(path):
        return pathlib.Path(path).read_text(encoding="utf-8", errors="replace")

    def said(self):
        return self.output(self.console)[-9000:] + self.output(self.log)[-9000:]

    def wait(self):
        """The exit status, after the end by itself."""
        return self.process.wait(TIMEOUT)

    def stop(self, number=signal.SIGTERM):
        """Ends the browser with this signal; its exit status."""
        self.process.send_signal(number)
        return self.wait()


class BrowserTestCase(unittest.TestCase):
    """Each test has a profile and a server, and leaves nothing behind."""

    @classmethod
    def setUpClass(cls):
        # Process ids up to 999 never count as engines; on a fresh machine they must be used up.
        pid = 0
        while pid <= 999:
            pid = os.fork() or os._exit(0)
            os.waitpid(pid, 0)

    def setUp(self):
        self.profile = Profile()
        self.addCleanup(shutil.rmtree, self.profile.path, ignore_errors=True)
        self.server = Server()
        self.addCleanup(self.server.close)
        self.browsers = []
        self.addCleanup(self._end_processes)

    def tearDown(self):
        for browser in self.browsers:
            if browser.process.poll() is None:
                self.assertEqual(0, browser.stop(), browser.said())
        # The page and plug-in processes ended by themselves or because the browser told them to.
        self.wait_until(lambda: self.profile.processes() == self.profile.engines(),
                        "the end of the browser's processes")
        for browser in self.browsers:
            ends = {line.split()[1]: line for line in browser.record.read_text().splitlines()}
            for line in ends.values():
                self.assertRegex(line, f"^end .* (0|-{signal.SIGTERM:d})$", browser.said())

    def open(self, *scenes, arguments=(), page="page.html?"):
        """Starts the browser with scenes of the server's page, or with (file, address) pairs."""
        words = ["--map-host", f"{CORP_HOST}=127.0.0.1:{self.server.port}", *arguments]
        for scene in scenes:
            words += (["--page", scene[0], "--url", scene[1]] if isinstance(scene, tuple)
                      else ["--page", f"http://{CORP_HOST}/{page}{scene}"])
        browser = Browser(self.profile, words)
        self.browsers.append(browser)
        return browser

    def wait_until(self, condition, what):
        deadline = time.monotonic() + TIMEOUT
        while not condition():
            self.assertLess(time.monotonic(), deadline, "not in time: " + what)
            time.sleep(0.05)

    def _end_processes(self):
        for pid in self.profile.processes():
            os.kill(pid, signal.SIGTERM)
        self.wait_until(lambda: not self.profile.processes(), "the end of the engine")

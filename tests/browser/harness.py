"""What the browser tests share: a profile, a loopback server, and the browser under control."""
import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.append(str(HERE.parent / "support"))
import server  # noqa: E402
from browsertest import BUILD, CORP_HOST, TIMEOUT, Profile, SceneTestCase  # noqa: E402

server.FOLDERS = server.FOLDERS[1:]
PROGRAM = os.environ.get("MPBP_BROWSER", BUILD / "mpbp-browser")
MODULE = str(BUILD / "libmpbppapiplugin.so")
# Whether the module runs in the page's process, not in one of its own.
IN_PROCESS = os.environ.get("MPBP_IN_PROCESS") == "1"
PAGE = HERE / "pages" / "page.html"


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


class BrowserTestCase(SceneTestCase):
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
        self.addCleanup(self.profile.remove)
        self.server = server.Server(self.profile.path)
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
        words = ["--map-host", f"{CORP_HOST}=127.0.0.1:{self.server.http_port}", *arguments]
        for scene in scenes:
            words += (["--page", scene[0], "--url", scene[1]] if isinstance(scene, tuple)
                      else ["--page", f"http://{CORP_HOST}/{page}{scene}"])
        browser = Browser(self.profile, words)
        self.browsers.append(browser)
        return browser

    def _end_processes(self):
        for pid in self.profile.processes():
            os.kill(pid, signal.SIGTERM)
        self.wait_until(lambda: not self.profile.processes(), "the end of the engine")

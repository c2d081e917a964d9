"""The program mpbp-browser itself."""
import signal
import struct
import subprocess

from harness import BUILD, MODULE, BrowserTestCase
from server import CONSOLE

PROGRAM = str(BUILD / "mpbp-browser")


class ProgramTest(BrowserTestCase):
    needs_engine = False

    def run_program(self, *words):
        return subprocess.run([PROGRAM, *words], capture_output=True, text=True, timeout=40,
                              check=False)

    def write_page(self, name, text):
        path = self.profile.path / name
        path.write_text(text, encoding="utf-8")
        return str(path)

    def test_wrong_command_lines_are_refused_and_help_is_printed(self):
        for words, complaint in ((["--bad"], '"--bad"'), (["--page"], "--page needs a value"),
                                 (["--run-for", "soon"], '"soon"'), (["--window", "1x"], '"1x"'),
                                 (["--map-host", "x"], '"x"'), (["--url", "a"], '"a"'),
                                 (["--url", "http://a/", "--url", "http://b/"], "more --url")):
            result = self.run_program(*words)
            self.assertEqual((2, ""), (result.returncode, result.stdout), words)
            self.assertIn(complaint, result.stderr)
        self.assertIn("--map-host", self.run_program("--help").stdout)

    def test_files_that_cannot_be_used_are_named(self):
        page = self.write_page("page.html", '<script src="missing.js"></script>')
        outside = self.write_page("outside.html", '<script src="../x.js"></script>')
        large = self.write_page("large.html", "x" * 2_100_000)
        for words, name in ((["--module", "/nowhere.so"], "/nowhere.so"),
                            (["--page", page], "missing.js"), (["--page", outside], "../x.js"),
                            (["--page", large], "2 MB")):
            result = self.run_program("--headless", "--module", MODULE, *words)
            self.assertEqual(1, result.returncode, result)
            self.assertIn(name, result.stderr)

    def test_a_page_is_shown_with_its_files_under_the_address_given(self):
        self.write_page("style.css", "body { color: rgb(1, 2, 3) }")
        self.write_page("script.js", "\nconsole.warn(location.href, 'ä', "
                        "getComputedStyle(document.body).color,"
                        "matchMedia('(prefers-color-scheme: dark)').matches)")
        page = self.write_page("page.html", '<link rel="stylesheet" href="style.css"><body>'
                               '<script src="script.js"></script>')
        picture = self.profile.path / "picture.png"
        browser = self.open((page, "https://shown.example/a"), arguments=[
            "--dark", "--run-for", "1", "--window", "400x300", "--screenshot", picture])
        self.assertEqual(0, browser.wait())
        self.assertIn("[page 1 warning script.js:2] https://shown.example/a ä rgb(1, 2, 3) true\n",
                      browser.output)
        self.assertEqual((400, 300), struct.unpack(">II", picture.read_bytes()[16:24]))

    def test_the_page_decides_the_status_and_a_failed_load_is_one(self):
        leave = self.write_page("leave.html", "<script>console.log('mpbp-browser:exit 7')</script>")
        self.assertEqual(7, self.open((leave, "https://a.example/")).wait())
        close = self.write_page("close.html", "<script>setTimeout(() => window.close(), 100)</script>")
        self.assertEqual(0, self.open((close, "https://a.example/")).wait())
        failed = self.open(arguments=["--page", "http://127.0.0.1:1/", "--run-for", "0"])
        self.assertEqual(1, failed.wait())

    def test_a_signal_ends_the_browser_and_all_its_processes(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            browser = self.open((CONSOLE / "index.html", "https://elsewhere.example/"))
            self.wait_until(lambda: "refused" in browser.said(), "the page")
            browser.process.send_signal(number)
            self.assertEqual(0, browser.wait())
            self.wait_until(lambda: not self.profile.processes(), "the end of every process")

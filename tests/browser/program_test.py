"""The program mpbp-browser itself."""
import struct
import subprocess

from harness import MODULE, PROGRAM, BrowserTestCase


class ProgramTest(BrowserTestCase):
    def run_program(self, *words):
        return subprocess.run([PROGRAM, *words], capture_output=True, text=True,
                              timeout=40, check=False)

    def write_page(self, name, text):
        path = self.profile.path / name
        path.write_text(text, encoding="utf-8")
        return str(path)

    def test_wrong_command_lines_and_unusable_files_are_refused(self):
        page = self.write_page("page.html", '<script src="missing.js"></script>')
        outside = self.write_page("outside.html", '<script src="../x.js"></script>')
        large = self.write_page("large.html", "x" * 2_100_000)
        usable = ["--headless", "--module", MODULE]
        for status, words, complaint in (
                (2, ["--bad"], '"--bad"'), (2, ["--page"], "--page needs a value"),
                (2, ["--run-for", "soon"], '"soon"'), (2, ["--window", "1x"], '"1x"'),
                (2, ["--map-host", "x"], '"x"'), (2, ["--url", "a"], '"a"'),
                (2, ["--url", "http://a/", "--url", "http://b/"], "more --url"),
                (1, ["--headless", "--module", "/nowhere.so"], "/nowhere.so"),
                (1, [*usable, "--page", page], "missing.js"),
                (1, [*usable, "--page", outside], "../x.js"),
                (1, [*usable, "--page", large], "2 MB")):
            result = self.run_program(*words)
            self.assertEqual(status, result.returncode, result)
            self.assertIn(complaint, result.stderr)
        self.assertIn("--map-host", self.run_program("--help").stdout)

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
                      browser.output(browser.console))
        self.assertEqual((400, 300), struct.unpack(">II", picture.read_bytes()[16:24]))

    def test_the_page_decides_the_status_and_a_failed_load_is_one(self):
        for status, script in ((7, "console.log('mpbp-browser:exit 7')"),
                               (0, "setTimeout(() => window.close(), 100)")):
            page = self.write_page("end.html", f"<script>{script}</script>")
            self.assertEqual(status, self.open((page, "https://a.example/")).wait())
        arguments = ["--page", "http://127.0.0.1:1/", "--run-for", "0"]
        self.assertEqual(1, self.open(arguments=arguments).wait())

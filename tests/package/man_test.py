"""The manual pages have the options of their programs and no others, and are well-formed."""
import os
import pathlib
import re
import shutil
import subprocess
import unittest

BUILD = pathlib.Path(os.environ["MPBP_BUILD_DIR"])
PAGES = pathlib.Path(__file__).resolve().parents[2] / "man"
# The commands of mpbp-host, which has them in its help too.
WORD = r"--[a-z][a-z-]*|(?<![\w/.])/[a-z]+\b(?![/.])"


def program(page):
    """The built program of a page of section 1, or None."""
    return next((path for path in (BUILD / page.stem, BUILD / "engine" / page.stem)
                 if path.is_file()), None)


def described(page):
    """The options and commands that have an item in the page's lists."""
    items = re.findall(r"^\.It (?:Fl -([a-z-]+)|Ic (/[a-z]+))", page.read_text(), re.MULTILINE)
    return {f"--{option}" if option else command for option, command in items}


def printed(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True, timeout=60).stdout


class ManTest(unittest.TestCase):
    def test_every_option_of_the_help_is_in_the_page_and_no_other(self):
        seen = 0
        for page in PAGES.glob("*.1"):
            if path := program(page):
                seen += 1
                with self.subTest(page.name):
                    text = printed(path, "--help")
                    self.assertEqual(set(re.findall(WORD, text)), described(page))
                    if "--list" in text:
                        self.assertEqual(
                            re.findall(r"^[\w-]+", printed(path, "--list"), re.MULTILINE),
                            re.findall(r"^\.It Cm (.+)", page.read_text(), re.MULTILINE))
        self.assertGreaterEqual(seen, 4)

    @unittest.skipUnless(shutil.which("man"), "there is no man")
    def test_the_pages_give_no_warning(self):
        for page in PAGES.iterdir():
            with self.subTest(page.name):
                result = subprocess.run(
                    ["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", page], capture_output=True,
                    text=True, check=True, env=dict(os.environ, MANWIDTH="80", LC_ALL="C.UTF-8"))
                self.assertEqual("", result.stderr)
                text = re.sub(".\b", "", result.stdout)
                names = re.search(r"^NAME\n +(.*) — ", text, re.MULTILINE)
                self.assertIn(page.stem, names[1].split(", "))


if __name__ == "__main__":
    unittest.main()

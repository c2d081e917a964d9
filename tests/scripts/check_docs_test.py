"""What scripts/check-docs finds in documents with one fault each, and lets pass in one without."""
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

TOP = pathlib.Path(__file__).resolve().parent.parent.parent


def check(text):
    """The exit status and what is said about a document."""
    with tempfile.TemporaryDirectory() as folder:
        document = pathlib.Path(folder, "page.md")
        document.write_text(text, encoding="utf-8")
        result = subprocess.run([sys.executable, "-B", TOP / "scripts/check-docs", document],
                                capture_output=True, text=True, check=False)
    return result.returncode, result.stdout + result.stderr


def block(text, marker="run", language="sh"):
    return f"<!-- {marker} -->\n```{language}\n{text}\n```\n"


class CheckDocsTest(unittest.TestCase):
    def test_finds(self):
        console = "console"
        for text, complaint in (
                ("```sh\ntrue\n```\n", "page.md:1: nothing says whether"),
                (block("true", "whatever"), "nothing says whether"),
                ("```\nscripts/demo\n```\n", "fence without language"),
                ("text\n\n    cmake --preset release\n", "page.md:3: a command stands outside"),
                (block("ls\nfalse\ntrue"), "ended with status 1"),
                (block("false | true"), "ended with status 1"),
                (block("true", "run, status 3"), "ended with status 0"),
                (block("$ echo one\ntwo", language=console), "echo one\nprinted\none\n"),
                (block("$ echo one; echo two\none", language=console), "two"),
                (block("$ true\n…d", language=console), "should have printed"),
                (block("$ echo a\na\n$ exit 0", language=console), "ended with status 0"),
                (block("if true; then", "not run: a reason"), "syntax error"),
                (block("cd x && sudo no-such a", "not run: root"), "no program no-such"),
                (block("mpbp-no --list", "not run: long"), "no program mpbp-no"),
                (block("A=1 \\\n  build/mpbp-no", "not run: long"), "no program build/mpbp-no"),
                (block("cmake --preset nothing", "not run: long"), "no preset nothing"),
                ("see [there](nowhere.md)", "the link nowhere.md leads nowhere"),
                ("# A title, `short`\n[there](#a-title)", "#a-title leads nowhere"),
                ("run `scripts/nothing 5`", "there is no scripts/nothing")):
            with self.subTest(text):
                status, said = check(text)
                self.assertEqual(1, status, said)
                self.assertIn(complaint, said)

    def test_lets_what_is_right_pass(self):
        status, said = check("\n".join((
            "# A title, `short`",
            "[there](#a-title-short) `scripts/demo --browser` `build/mpbp-host`",
            block("cd ~\necho kept >file\nmkdir -p tree"),
            block("$ cat ~/file  # of the block before\nkept\n"
                  "$ printf '%s\\n' a.b xcx \\\n> end\na.b\n…c…\n…\n"
                  "$ ls scripts build >/dev/null", language="console"),
            block("exit 3", "run, status 3"),
            block("# as root\nsudo apt-get install x | tee y; mpbp-host", "not run: root"),
            "    [\"httprequest\",1]", "```html\n<embed>\n```\n")))
        self.assertEqual(0, status, said)
        self.assertIn("blocks run: 3", said)

    def test_a_reader_begins_with_an_empty_home_folder(self):
        os.environ["XDG_CONFIG_HOME"] = "/nonexistent"
        self.addCleanup(os.environ.pop, "XDG_CONFIG_HOME")
        status, said = check(block('test -z "$(ls -A ~)"\ntest -z "${XDG_CONFIG_HOME-}"\n'
                                   "echo 1 >~/check-docs-a; echo 1 >check-docs-a"))
        self.assertEqual(0, status, said)
        for folder in (TOP, pathlib.Path.home()):
            self.assertFalse((folder / "check-docs-a").exists())


if __name__ == "__main__":
    unittest.main()

"""The channel without a browser: build/line-client, with the stand-in engine's own process."""
import os
import pathlib
import signal
import subprocess
import tempfile
import unittest

BUILD = pathlib.Path(os.environ["MPBP_BUILD_DIR"])


class LineClientTest(unittest.TestCase):
    def test_lines_go_out_and_texts_come_in_until_the_input_ends(self):
        with tempfile.TemporaryDirectory(prefix="mpbp-line-client-") as folder:
            settings = pathlib.Path(folder, "murmel-murmelparlplugin")
            settings.mkdir()
            (settings / "options").write_text(f"install_dir={BUILD}/engine\n", encoding="utf-8")
            lines = ["no JSON at all\n", '["echo","ä"]\n', '["quit"]\n']
            steps = ['"error":-1,"step":"0"', *(f'"step":"{step}"' for step in (2, 0, 1, 3, 4))]
            *beginning, end = (f'["f-connect",{{{step}}}]\n' for step in steps)
            with subprocess.Popen([BUILD / "line-client", "--url", "https://www.murmel.example/page"],
                                  env=dict(os.environ, XDG_CONFIG_HOME=folder), text=True,
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE) as client:
                texts = [client.stdout.readline() for _ in range(7)]
                self.assertEqual([*beginning, '["f-ready"]\n'], texts[:6])
                self.assertIn('["qw",', texts[6])
                client.stdin.writelines(lines)
                client.stdin.flush()
                self.assertEqual([*lines[:2], end], [client.stdout.readline() for _ in range(3)])
                client.stdin.close()
                self.assertEqual(0, client.wait(30))

    def test_pages_that_are_not_served_and_wrong_words_are_refused(self):
        for status, words, complaint in ((1, ["--url", "https://a.example/"], "not an allowed URL"),
                                         (2, ["--url"], "usage"), (2, [], "usage")):
            ended = subprocess.run([BUILD / "line-client", *words], stdin=subprocess.DEVNULL,
                                   capture_output=True, text=True, timeout=30, check=False)
            self.assertEqual(status, ended.returncode)
            self.assertIn(complaint, ended.stderr)


if __name__ == "__main__":
    signal.alarm(100)
    unittest.main()

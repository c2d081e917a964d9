"""The channel without a browser: build/line-client, with the stand-in engine's own process."""
import os
import pathlib
import signal
import subprocess
import tempfile
import unittest

BUILD = pathlib.Path(os.environ["MPBP_BUILD_DIR"])


class LineClientTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="mpbp-line-client-")
        self.addCleanup(folder.cleanup)
        settings = pathlib.Path(folder.name, "murmel-murmelparlplugin")
        settings.mkdir()
        (settings / "options").write_text(f"install_dir={BUILD}/engine\n", encoding="utf-8")
        self.environment = dict(os.environ, XDG_CONFIG_HOME=folder.name)

    def start(self, *words):
        return subprocess.Popen(
            [BUILD / "line-client", *words], env=self.environment, stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def test_lines_go_out_and_texts_come_in_until_the_input_ends(self):
        with self.start("--url", "https://www.murmel.example/page") as client:
            texts = [client.stdout.readline() for _ in range(7)]
            self.assertEqual(['["f-connect",{"error":-1,"step":"0"}]\n',
                              '["f-connect",{"step":"2"}]\n', '["f-connect",{"step":"0"}]\n',
                              '["f-connect",{"step":"1"}]\n', '["f-connect",{"step":"3"}]\n',
                              '["f-ready"]\n'], texts[:6])
            self.assertIn('["qw",', texts[6])
            for line in ("no JSON at all\n", '["echo","ä"]\n', '["quit"]\n'):
                client.stdin.write(line)
            client.stdin.flush()
            self.assertEqual(["no JSON at all\n", '["echo","ä"]\n'],
                             [client.stdout.readline() for _ in range(2)])
            self.assertEqual('["f-connect",{"step":"4"}]\n', client.stdout.readline())
            client.stdin.close()
            self.assertEqual(0, client.wait(30))

    def test_pages_that_are_not_served_and_wrong_words_are_refused(self):
        for status, words, complaint in ((1, ["--url", "https://a.example/"], "not an allowed URL"),
                                         (2, ["--url"], "usage"), (2, [], "usage")):
            with self.start(*words) as client:
                self.assertEqual(status, client.wait(30))
                self.assertIn(complaint, client.stderr.read())


if __name__ == "__main__":
    signal.alarm(100)
    unittest.main()

"""A page that takes long over a text, in mpbp-host with the module and the stand-in engine."""
import os
import pathlib
import subprocess
import tempfile
import time
import unittest

BUILD = pathlib.Path(os.environ["MPBP_BUILD_DIR"])
DEADLINE_S = 60


class SlowPageTest(unittest.TestCase):
    def test_a_slow_page_is_told_to_the_engine(self):
        with tempfile.TemporaryDirectory(prefix="mpbp-slow-page-") as profile:
            folder = pathlib.Path(profile, "murmel-murmelparlplugin")
            folder.mkdir()
            (folder / "options").write_text(f"install_dir={BUILD}/engine\n", encoding="utf-8")
            log = folder / "mpbppapiplugin.log"
            told = 'C->F: ["comment","JS layer took '
            with subprocess.Popen([BUILD / "mpbp-host", "--profile", profile], text=True,
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL) as host:
                host.stdin.write("/slow soon\n/slow 1200\n")
                host.stdin.flush()
                end = time.monotonic() + DEADLINE_S
                while time.monotonic() < end and not (log.exists() and told in log.read_text()):
                    time.sleep(0.05)
                output, _ = host.communicate('/slow 0\n["quit"]\n/quit\n', timeout=DEADLINE_S)
            self.assertIn("/slow needs a number of milliseconds\n", output)
            self.assertIn(told, log.read_text(encoding="utf-8"))
            self.assertEqual(0, host.returncode, output)


if __name__ == "__main__":
    unittest.main()

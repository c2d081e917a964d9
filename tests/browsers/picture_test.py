"""What the browser draws for the element: nothing. Chromium alone: Firefox draws nothing by itself,
and takes its pictures without extensions."""
import pathlib
import subprocess
import tempfile
import unittest

import harness
from server import Server


@unittest.skipIf(harness.KIND != "chromium", "draws nothing for an unknown type")
class PictureTest(unittest.TestCase):
    def colours(self, folder, address, *extension):
        """How many colours a picture of the page has."""
        picture = folder / "picture.png"
        subprocess.run(
            [harness.PROGRAM, "--headless=new", "--no-sandbox", "--disable-gpu", "--no-first-run",
             f"--user-data-dir={folder / 'profile'}", "--host-resolver-rules=MAP * 127.0.0.1",
             "--ignore-certificate-errors", "--hide-scrollbars", "--virtual-time-budget=3000",
             *extension, f"--screenshot={picture}", address],
            check=True, capture_output=True, timeout=harness.TIMEOUT, cwd=folder)
        shown = subprocess.run(["identify", "-format", "%k", picture], check=True,
                               capture_output=True, text=True)
        return int(shown.stdout)

    def test_nothing_shows_where_the_element_is(self):
        with tempfile.TemporaryDirectory(prefix="mpbp-picture-") as name:
            folder = pathlib.Path(name)
            server = Server(folder)
            self.addCleanup(server.close)
            address = f"https://{harness.HOST}:{server.port}/picture.html"
            extension = harness.BUILD / "extension"
            self.assertGreater(self.colours(folder, address), 1, "the browser has no box of its own")
            self.assertEqual(1, self.colours(
                folder, address, f"--disable-extensions-except={extension}",
                f"--load-extension={extension}"))


if __name__ == "__main__":
    unittest.main()

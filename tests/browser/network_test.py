"""Requests that go out through the browser's own loader."""
import os

from harness import BrowserTestCase
from server import Server, form_parts

CRASH_REPORT_HOST = os.environ.get("MPBP_CRASH_REPORT_HOST", "crash.murmel.example")
POSTED = "bin\0\x01\r\n\xff\U0001f3a7end"


class NetworkTest(BrowserTestCase):
    def test_the_engine_fetches_and_posts_and_the_page_uploads_the_log(self):
        # Long enough for several reads, with NUL bytes and characters of every length.
        answer = "zero\0, ä, \U0001f3a7, " * 500
        self.server.answers["/answer.txt"] = answer.encode()
        self.server.answers["/odd.txt"] = b"cut \xf0\x9f, stray \xff, noncharacter \xef\xbf\xbf."
        crash_host = Server(CRASH_REPORT_HOST, self.profile.path)
        self.addCleanup(crash_host.close)
        crash_host.answers["/cr/report"] = b"taken"
        browser = self.open(f"network&127.0.0.1:{self.server.port}", arguments=[
            "--map-host", f"{CRASH_REPORT_HOST}=127.0.0.1:{crash_host.port}"])

        for body in (answer, POSTED):
            _, _, about, headers, text = browser.report("answer")
            self.assertEqual(0, about["error"])
            self.assertTrue(about["url"].startswith(f"http://127.0.0.1:{self.server.port}/"))
            self.assertRegex(headers.lower(), r"\ncontent-length: \d+")
            self.assertEqual(body, text)
        # What the browser takes for no text must not cost the page the whole answer.
        self.assertRegex(browser.report("answer")[4],
                         "^cut \ufffd+, stray \ufffd+, noncharacter \ufffd+[.]$")
        # A verb that is not served, and a refused connection.
        self.assertEqual([3, 2], [browser.report("answer")[2]["error"] for _ in range(2)])
        asked = {(method, path): (headers, body)
                 for method, path, headers, body in self.server.requests}
        self.assertEqual("yes", asked["GET", "/answer.txt?a=1"][0]["X-Test"])
        self.assertEqual(POSTED.encode(), asked["POST", "/post"][1])

        _, number, about = browser.report("uploaded")
        self.assertEqual((100, 0), (number, about["error"]))
        self.assertEqual(0, browser.wait())
        ((method, path, headers, body),) = crash_host.requests
        self.assertEqual(("POST", "/cr/report"), (method, path))
        prod, _, address, _, log = form_parts(headers["Content-Type"], body)
        self.assertEqual(("Murmel_Parl_Plugin_Linux", "user@host"), (prod[2], address[2]))
        self.assertIn("Connect Status: ", log[2])
        self.assertIn("UploadBrowserPluginLog message with qw info:", log[2])

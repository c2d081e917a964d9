"""Requests that go out through the browser's own loader."""
import email
import os

from harness import BrowserTestCase, both_places
from server import Server

CRASH_REPORT_HOST = os.environ.get("MPBP_CRASH_REPORT_HOST", "crash.murmel.example")
POSTED = "bin\0\x01\r\n\xff\U0001f3a7end"


class Cases(BrowserTestCase):
    def test_the_engine_fetches_and_posts_through_the_browser(self):
        # Long enough for several reads, with NUL bytes and characters of every length.
        answer = "zero\0, ä, \U0001f3a7, " * 500
        self.server.answers["/answer.txt"] = answer.encode()
        self.server.answers["/odd.txt"] = b"cut \xf0\x9f, stray \xff, noncharacter \xef\xbf\xbf."
        browser = self.open(f"requests.html?{self.server.port}")
        self.check_answer(browser.report("get"), answer)
        self.check_answer(browser.report("post"), POSTED)
        # What the browser takes for no text must not cost the page the whole answer.
        self.assertRegex(browser.report("odd")[4], "^cut \ufffd+, stray \ufffd+, noncharacter \ufffd+[.]$")
        self.assertEqual(3, browser.report("put")[2]["error"])
        self.assertEqual(2, browser.report("nobody")[2]["error"])
        self.assertEqual(0, browser.wait())
        asked = {(method, path): (headers, body)
                 for method, path, headers, body in self.server.requests}
        self.assertEqual("yes", asked["GET", "/answer.txt?a=1"][0]["X-Test"])
        self.assertEqual(POSTED.encode(), asked["POST", "/post"][1])

    def check_answer(self, response, body):
        _, _, about, headers, text = response
        self.assertEqual(0, about["error"])
        self.assertTrue(about["url"].startswith(f"http://127.0.0.1:{self.server.port}/"))
        self.assertRegex(headers.lower(), r"\ncontent-length: \d+")
        self.assertEqual(body, text)

    def test_the_log_reaches_the_crash_report_host(self):
        crash_host = Server(CRASH_REPORT_HOST, self.profile.path)
        self.addCleanup(crash_host.close)
        browser = self.open("upload.html", arguments=[
            "--map-host", f"{CRASH_REPORT_HOST}=127.0.0.1:{crash_host.port}"])
        self.assertEqual("still talking", browser.report("upload"))
        self.wait_until(lambda: crash_host.requests, "the upload")
        ((method, path, headers, body),) = crash_host.requests
        self.assertEqual(("POST", "/cr/report"), (method, path))
        head = f"Content-Type: {headers['Content-Type']}\r\n\r\n".encode()
        form = {part.get_param("name", header="content-disposition"): part
                for part in email.message_from_bytes(head + body).get_payload()}
        self.assertEqual("user@host", form["email"].get_payload().strip())
        self.assertEqual("Murmel_Parl_Plugin_Linux", form["prod"].get_payload().strip())
        (log,) = [part for part in form.values() if part.get_filename()]
        self.assertEqual("browserpluginlog.log", log.get_filename())
        self.assertIn("Connect Status: ", log.get_payload())
        self.assertIn("UploadBrowserPluginLog message with qw info:", log.get_payload())


OwnProcessNetworkTest, PageProcessNetworkTest = both_places("NetworkTest", Cases)
del Cases

"""Requests that go out through the browser's own loader."""
import email
import os

from harness import BrowserTestCase

CRASH_REPORT_HOST = os.environ.get("MPBP_CRASH_REPORT_HOST", "crash.murmel.example")


def form_parts(content_type, body):
    """(disposition, type, content) of each part of a form; contents with a character for a byte."""
    form = email.message_from_bytes(f"Content-Type: {content_type}\r\n\r\n".encode() + body)
    if form.defects:
        raise ValueError(form.defects)
    return [(part["content-disposition"], part["content-type"],
             part.get_payload(decode=True).decode("latin-1")) for part in form.get_payload()]


class NetworkTest(BrowserTestCase):
    def test_the_engine_fetches_and_posts_and_the_page_uploads_the_log(self):
        self.server.answers["/cr/report"] = b"taken"
        self.serve_answers(500)  # several reads
        browser = self.open(f"network&127.0.0.1:{self.server.http_port}", arguments=[
            "--map-host", f"{CRASH_REPORT_HOST}=127.0.0.1:{self.server.port}"])
        self.expect_network(browser.report, "127.0.0.1", "ok")
        _, number, about = browser.report("uploaded")
        self.assertEqual((100, 0), (number, about["error"]))
        self.assertEqual(0, browser.wait())
        ((method, path, headers, body),) = (r for r in self.server.requests if "/cr/" in r[1])
        self.assertEqual(("POST", "/cr/report"), (method, path))
        prod, _, address, _, log = form_parts(headers["Content-Type"], body)
        self.assertEqual(("Murmel_Parl_Plugin_Linux", "user@host"), (prod[2], address[2]))
        self.assertIn("Connect Status: ", log[2])
        self.assertIn("UploadBrowserPluginLog message with qw info:", log[2])

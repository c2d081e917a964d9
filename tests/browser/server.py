"""A loopback web server for the pages of the tests and for the requests they cause."""
import email
import http.server
import mimetypes
import pathlib
import ssl
import subprocess
import threading

HERE = pathlib.Path(__file__).resolve().parent
CONSOLE = HERE.parent.parent / "examples" / "console"


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        self.server.requests.append((self.command, self.path, dict(self.headers), body))
        path = self.path.split("?")[0]
        content = self.server.answers.get(path, body)
        for file in (HERE / "pages" / path[1:], CONSOLE / path[1:]):
            if file.is_file():
                content = file.read_bytes()
        self.send_response(200)
        content_type = mimetypes.guess_type(path)[0] or "text/plain"
        self.send_header("Content-Type", content_type + "; charset=utf-8")
        self.send_header("Content-Length", str(len(content)))
        self.end_headers()
        self.wfile.write(content)

    do_POST = do_GET

    def log_message(self, *_):
        pass


class Server(http.server.ThreadingHTTPServer):
    """Serves pages/ and the example console; any other request's body comes back.

    `requests` holds (method, path, headers, body) of each request; `answers` maps paths to bodies
    of further answers. With `certificate_for` it speaks https, with a certificate of its own making
    for that host: FOLDER/cert.pem.
    """

    daemon_threads = True

    def __init__(self, certificate_for=None, folder=None):
        super().__init__(("127.0.0.1", 0), Handler)
        self.port = self.server_address[1]
        self.requests = []
        self.answers = {}
        if certificate_for:
            cert, key = (pathlib.Path(folder, name) for name in ("cert.pem", "key.pem"))
            subprocess.run(
                ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                 "-keyout", key, "-out", cert, "-subj", "/CN=" + certificate_for,
                 "-addext", "subjectAltName=DNS:" + certificate_for],
                check=True, capture_output=True)
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(cert, key)
            self.socket = context.wrap_socket(self.socket, server_side=True)
        threading.Thread(target=self.serve_forever, args=(0.05,)).start()

    def close(self):
        self.shutdown()
        self.server_close()


def form_parts(content_type, body):
    """(disposition, type, content) of each part of a form; contents with a character for a byte."""
    form = email.message_from_bytes(f"Content-Type: {content_type}\r\n\r\n".encode() + body)
    if form.defects:
        raise ValueError(form.defects)
    return [(part["content-disposition"], part["content-type"],
             part.get_payload(decode=True).decode("latin-1")) for part in form.get_payload()]

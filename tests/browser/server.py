"""A loopback web server for the pages of the tests and for the requests they cause."""
import http.server
import os
import pathlib
import ssl
import subprocess
import threading

HERE = pathlib.Path(__file__).resolve().parent
CONSOLE = HERE.parent.parent / "examples" / "console"

TYPES = {".html": "text/html", ".js": "text/javascript", ".css": "text/css"}


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        path = self.path.split("?")[0]
        self.server.requests.append((self.command, self.path, dict(self.headers), b""))
        if path in self.server.answers:
            self.answer(200, self.type_of(path), self.server.answers[path])
            return
        for folder in (HERE / "pages", CONSOLE):
            file = (folder / path.lstrip("/")).resolve()
            if file.is_file() and file.parent == folder:
                self.answer(200, self.type_of(path), file.read_bytes())
                return
        self.answer(404, "text/plain", b"no such page\n")

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        self.server.requests.append((self.command, self.path, dict(self.headers), body))
        self.answer(200, "application/octet-stream", body)

    @staticmethod
    def type_of(path):
        return TYPES.get(pathlib.Path(path).suffix, "text/plain") + "; charset=utf-8"

    def answer(self, status, content_type, body):
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


class Server:
    """Serves pages/ and the example console; POST bodies come back.

    `requests` holds (method, path, headers, body) of each request; `answers` maps paths to bodies
    of further GET answers. With `certificate_for` it speaks https, with a certificate of its own
    making for that host.
    """

    def __init__(self, certificate_for=None, folder=None):
        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self._server.daemon_threads = True
        self._server.requests = self.requests = []
        self._server.answers = self.answers = {}
        if certificate_for:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(make_certificate(certificate_for, folder))
            self._server.socket = context.wrap_socket(self._server.socket, server_side=True)
        self.port = self._server.server_address[1]
        self._thread = threading.Thread(target=self._server.serve_forever, args=(0.05,))
        self._thread.start()

    def close(self):
        self._server.shutdown()
        self._thread.join()
        self._server.server_close()


def make_certificate(host, folder):
    pem = os.path.join(folder, "certificate.pem")
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-keyout", pem,
         "-out", pem + ".crt", "-subj", "/CN=" + host, "-addext", "subjectAltName=DNS:" + host],
        check=True, capture_output=True)
    with open(pem, "a", encoding="ascii") as key, open(pem + ".crt", encoding="ascii") as cert:
        key.write(cert.read())
    return pem

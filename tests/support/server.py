"""The web server of the browsers' pages and of the engine's requests, on the loopback address."""
import http.server
import json
import mimetypes
import pathlib
import queue
import ssl
import subprocess
import threading

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
CONSOLE = TOP / "examples" / "console"
# The pages of the module's tests are served too: they are the same in every browser.
FOLDERS = (TOP / "tests/browsers/pages", TOP / "tests/browser/pages", CONSOLE)
NAMES = ["*.corp.murmel.example", "corp.murmel.example", "www.murmel.example", "meet.murmel.example",
         "elsewhere.example"]


def readme_page():
    """The page of the README, as it stands there."""
    text = (TOP / "README.md").read_text(encoding="utf-8")
    return text.split("```html\n", 1)[1].split("```", 1)[0].encode()


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    isolated = ()  # paths of pages

    def do_GET(self):
        path = self.path.split("?")[0]
        content_type = mimetypes.guess_type(path)[0] or "text/plain"
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        if path == "/report":
            self.server.reports.put(json.loads(body))
            self._answer(b"", content_type)
        elif path in self.server.answers or body:
            self.server.requests.append((self.command, self.path, dict(self.headers), body))
            self._answer(self.server.answers.get(path, body), content_type)
        elif path == "/next":
            self._answer(self.server.next_page().encode(), content_type)
        elif path == "/redirect":
            self._answer(b"", content_type, 302)
        elif path == "/readme.html":
            self._answer(readme_page(), content_type)
        else:
            files = [folder / path[1:] for folder in FOLDERS]
            found = [file.read_bytes() for file in files if file.is_file()]
            self._answer(found[0] if found else b"", content_type, 200 if found else 404)

    do_POST = do_GET

    def _answer(self, content, content_type, status=200):
        self.send_response(status)
        self.send_header("Content-Type", f"{content_type}; charset=utf-8")
        self.send_header("Content-Length", str(len(content)))
        if status == 302:
            self.send_header("Location", "/answer.txt")
        elif self.path.startswith("/answer.txt"):
            self.send_header("Last-Modified", "Sun, 06 Nov 1994 08:49:37 GMT")
        # Fine timers; the finest where nothing comes from other origins.
        self.send_header("Cross-Origin-Opener-Policy", "same-origin")
        if self.path.split("?")[0] in self.isolated:
            self.send_header("Cross-Origin-Embedder-Policy", "require-corp")
        self.end_headers()
        self.wfile.write(content)

    def log_message(self, *_):
        pass


class Quiet(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, request, client_address):
        pass  # a browser that goes away in the middle


class Server:
    """Serves what is in FOLDERS over https and over http; without a FOLDER over http alone.

    Its certificate is from an authority of its own: FOLDER/ca.crt. Pages report to /report, and
    learn from /next where to go. A body that is sent elsewhere comes back.
    """

    def __init__(self, folder=None):
        self.reports = queue.Queue()
        self.answers = {}  # bodies of further answers, by path
        self.requests = []  # for those, and with bodies: (method, path, headers, body)
        self._asked = 0
        self._next_page = ""
        self._changed = threading.Condition()
        self._servers = []
        self.port = self.http_port = self._serve(None)
        if folder:
            self._make_certificates(pathlib.Path(folder))
            self.port = self._serve(pathlib.Path(folder))

    def _serve(self, certificates):
        server = Quiet(("127.0.0.1", 0), Handler)
        server.reports, server.answers, server.requests = self.reports, self.answers, self.requests
        server.next_page = self._wait_for_page
        if certificates:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(certificates / "leaf.crt", certificates / "leaf.key")
            server.socket = context.wrap_socket(server.socket, server_side=True,
                                                do_handshake_on_connect=False)
        threading.Thread(target=server.serve_forever, args=(0.05,), daemon=True).start()
        self._servers.append(server)
        return server.server_address[1]

    @staticmethod
    def _make_certificates(folder):
        def openssl(*words):
            subprocess.run(["openssl", *words], check=True, capture_output=True, cwd=folder)

        curve = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]
        openssl("req", "-x509", *curve, "-days", "2", "-subj", "/CN=Test CA", "-keyout", "ca.key",
                "-out", "ca.crt", "-addext", "basicConstraints=critical,CA:TRUE",
                "-addext", "keyUsage=critical,keyCertSign")
        openssl("req", *curve, "-subj", "/CN=pages", "-keyout", "leaf.key", "-out", "leaf.csr")
        (folder / "leaf.ext").write_text("extendedKeyUsage=serverAuth\nsubjectAltName="
                                         + ",".join("DNS:" + name for name in NAMES))
        openssl("x509", "-req", "-in", "leaf.csr", "-CA", "ca.crt", "-CAkey", "ca.key",
                "-CAcreateserial", "-days", "2", "-out", "leaf.crt", "-extfile", "leaf.ext")

    def _wait_for_page(self):
        """Where the page that asks is to go; nothing when a later one has asked."""
        with self._changed:
            self._asked += 1
            asked = self._asked
            self._changed.notify_all()
            self._changed.wait_for(lambda: self._next_page or self._asked != asked)
            address = self._next_page if self._asked == asked else ""
            if address:
                self._next_page = ""
            return address

    def go(self, address):
        """Sends the page that has asked last there, or the first one to ask."""
        with self._changed:
            self._next_page = address
            self._changed.notify_all()

    def close(self):
        self.go("about:blank")
        for server in self._servers:
            server.shutdown()
            server.server_close()

"""Takes log uploads over TLS on a loopback port.

usage: upload_server.py FOLDER HOST

Makes the key FOLDER/key.pem and the certificate FOLDER/cert.pem in HOST's name, prints the port,
and then one line of JSON for each POST: its path, its head, and the parts of its form. Contents are
given as latin-1 text, one character for each byte. Runs until it is killed.
"""

import email.parser
import http.server
import json
import os
import ssl
import subprocess
import sys


def make_certificate(folder, host):
    key, cert = os.path.join(folder, "key.pem"), os.path.join(folder, "cert.pem")
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
         "-nodes", "-days", "2", "-subj", "/CN=" + host, "-addext", "subjectAltName=DNS:" + host,
         "-keyout", key, "-out", cert],
        check=True, stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return key, cert


def parts_of(content_type, body):
    head = b"Content-Type: " + content_type.encode("latin-1") + b"\r\n\r\n"
    form = email.parser.BytesParser().parsebytes(head + body)
    return [{
        "disposition": part.get_content_disposition(),
        "name": part.get_param("name", header="content-disposition"),
        "filename": part.get_filename(),
        "type": part["content-type"],
        "content": part.get_payload(decode=True).decode("latin-1"),
    } for part in form.get_payload()], [type(defect).__name__ for defect in form.defects]


class Handler(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        parts, defects = parts_of(self.headers["Content-Type"], body)
        print(json.dumps({
            "path": self.path,
            "content_type": self.headers["Content-Type"],
            "begin": body[:80].decode("latin-1"),
            "end": body[-80:].decode("latin-1"),
            "parts": parts,
            "defects": defects,
        }), flush=True)
        answer = b"taken"
        self.send_response(200)
        self.send_header("Content-Length", str(len(answer)))
        self.end_headers()
        self.wfile.write(answer)

    def log_message(self, *args):
        pass


def main():
    key, cert = make_certificate(sys.argv[1], sys.argv[2])
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)
    server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
    server.socket = context.wrap_socket(server.socket, server_side=True)
    print(server.server_port, flush=True)
    server.serve_forever()


main()

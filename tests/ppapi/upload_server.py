"""Takes a log upload over TLS, until the input ends; usage: upload_server.py FOLDER HOST

Writes FOLDER/cert.pem, HOST's certificate, FOLDER/port, and, when the upload has come, FOLDER/upload:
a JSON object with the path, the content type, the body and the form's parts, a character for a byte.
"""
import json
import pathlib
import select
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "browser"))
from server import Server, form_parts


folder = pathlib.Path(sys.argv[1])


def publish(name, text):
    (folder / "unfinished").write_text(text, encoding="ascii")
    (folder / "unfinished").rename(folder / name)


server = Server(sys.argv[2], folder)
server.answers["/cr/report"] = b"taken"
publish("port", str(server.port))
while not select.select([sys.stdin], [], [], 0.01)[0]:
    if server.requests:
        _, path, headers, body = server.requests.pop()
        publish("upload", json.dumps({
            "path": path, "content_type": headers["Content-Type"], "body": body.decode("latin-1"),
            "parts": form_parts(headers["Content-Type"], body)}))
server.close()

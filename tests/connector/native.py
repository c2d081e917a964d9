"""A browser's end of the connector's pipes."""
import json
import os
import pathlib
import struct
import subprocess
import tempfile

BUILD = pathlib.Path(os.environ["MPBP_BUILD_DIR"])
VERSION = "5.1.7.0"
PAGE = "https://www.murmel.example"
READY = '["f-ready"]'


class Connector:
    """mpbp-connector with a configuration folder of its own; the stand-in engine is its engine."""

    def __init__(self, options="", config=None, hello=True):
        self.folder = tempfile.TemporaryDirectory(prefix="mpbp-connector-", ignore_cleanup_errors=True)
        self.config = pathlib.Path(config or self.folder.name)
        self.data = self.config / "murmel-murmelparlplugin"
        self.data.mkdir(exist_ok=True)
        (self.data / "options").write_text(f"install_dir={BUILD}/engine\n{options}", "utf-8")
        self.process = subprocess.Popen(
            [BUILD / "mpbp-connector", "chrome-extension://abc/"], stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, bufsize=0,
            env=dict(os.environ, XDG_CONFIG_HOME=str(self.config)))
        if hello:
            self.write(type="hello", version=VERSION)
            assert self.read() == {"type": "hello", "version": VERSION}

    def write_bytes(self, data):
        while data:
            data = data[self.process.stdin.write(data):]

    def write(self, **message):
        data = json.dumps(message).encode()
        self.write_bytes(struct.pack("=I", len(data)) + data)

    def send(self, link, text, size=60000):
        cuts = [text[i:i + size] for i in range(0, len(text), size)] or [""]
        for number, piece in enumerate(cuts):
            self.write(type="text", link=link, piece=piece, more=number + 1 < len(cuts))

    def read_bytes(self, count):
        data = b""
        while len(data) < count:
            part = self.process.stdout.read(count - len(data))
            if not part:
                raise EOFError
            data += part
        return data

    def read_object(self):
        return json.loads(self.read_bytes(struct.unpack("=I", self.read_bytes(4))[0]))

    def read(self):
        """The next object, acknowledged when it is a piece."""
        message = self.read_object()
        if message["type"] == "text":
            self.write(type="ack", link=message["link"], pieces=1)
        return message

    def read_until(self, wanted):
        """The next object that `wanted` holds for."""
        while not wanted(message := self.read()):
            pass
        return message

    def read_text(self, link):
        """The next text of the link; acknowledgements and other links are passed over."""
        text = ""
        more = True
        while more:
            message = self.read_until(lambda m: m["type"] == "text" and m["link"] == link)
            text += message["piece"]
            more = message["more"]
        return text

    def open(self, link, origin=PAGE):
        self.write(type="open", link=link, origin=origin)
        self.write(type="start", link=link)

    def read_texts_until(self, link, last):
        texts = [self.read_text(link)]
        while texts[-1] != last:
            texts.append(self.read_text(link))
        return texts

    def open_ready(self, link):
        self.open(link)
        return self.read_texts_until(link, READY)

    def log(self):
        return (self.data / "mpbpconnector.log").read_text("utf-8", "replace")

    def end(self, seconds=10):
        """Ends the input; the exit status."""
        self.process.stdin.close()
        return self.process.wait(seconds)

    def close(self):
        self.process.kill()
        self.process.wait()
        self.process.stdin.close()
        self.process.stdout.close()
        self.folder.cleanup()

    def status(self, name):
        """A number that the system has about the process."""
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text("utf-8")
        return int(next(l for l in status.splitlines() if l.startswith(name)).split()[1])

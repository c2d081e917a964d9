#!/usr/bin/env python3
"""A complete engine, to build upon: docs/engine.md has the duties, docs/wire-format.md the bytes.
To try it, make it the program MurmelParlPlugin in the folder that the option install_dir names.
A page sends ["echo", any] and gets it back, or ["say", "text"], which every page gets as "said"."""
import asyncio
import contextlib
import fcntl
import json
import logging
import os
import pathlib
import re
import resource
import secrets
import signal
import struct
import sys
import time

COOKIE, DATA, COOKIE_RESPONSE, HOST_DESCRIPTION = 1, 2, 3, 4
IDLE_SECONDS = 60  # without a page; the plug-in starts it again
MAX_STRANGER_FRAME = 64 << 10
MAX_FRAME = 300 << 20  # the plug-in keeps up to 256 MiB for a page
MAX_UNREAD = 64 << 20  # of what one page has not taken, when others talk to it


def text_of(word, *values):
    """A text for pages. What others wrote stands in it as JSON values only, and where they wrote a
    word that the plug-in looks for, an escape hides it: JSON readers get the same string."""
    tail = "".join("," + json.dumps(value, allow_nan=False) for value in values)
    hidden = re.sub(r'"(qw|httprequest|getproxyforurl)(?=")',
                    lambda found: f'"\\u{ord(found[1][0]):04x}{found[1][1:]}', tail)
    return f'["{word}"{hidden}]'.encode()


def write_frame(writer, kind, payload):
    writer.write(struct.pack(">HI", kind, len(payload)) + payload)


class Engine:
    def __init__(self):
        self.cookie = secrets.token_hex(8).encode()  # 16 bytes, afresh with each start
        self.pages = set()  # the links that are authorized
        self.stopped = asyncio.Event()

    async def serve(self, reader, writer):
        """One link, until the plug-in closes it."""
        try:
            while True:
                limit = MAX_FRAME if writer in self.pages else MAX_STRANGER_FRAME
                kind, length = struct.unpack(">HI", await reader.readexactly(6))
                if length > limit:
                    raise ConnectionError(f"a frame of {length} bytes")
                self.on_frame(writer, kind, await reader.readexactly(length))
                await writer.drain()  # a page that does not read is not read from either
        except (ConnectionError, asyncio.IncompleteReadError) as end:
            logging.info("a link has ended: %s", end)
        finally:
            self.pages.discard(writer)
            writer.close()

    def on_frame(self, writer, kind, payload):
        if kind == COOKIE:
            right = secrets.compare_digest(payload, self.cookie)
            write_frame(writer, COOKIE_RESPONSE, self.cookie if right else b"")
            if right and writer not in self.pages:
                self.pages.add(writer)
                write_frame(writer, DATA, text_of("qw", {"engine": "example"}))
        elif writer not in self.pages:
            logging.error("type %d before the cookie: dropped", kind)
        elif kind == DATA:
            try:
                self.on_text(writer, json.loads(payload.decode(errors="replace")))
            except (ValueError, RecursionError) as error:
                logging.info("a text that is no JSON: %s", error)
        elif kind == HOST_DESCRIPTION:
            logging.info("the page is %r", payload)
        else:
            logging.warning("type %d is unknown: dropped", kind)

    def on_text(self, writer, message):
        match message:
            case ["echo", *values]:
                write_frame(writer, DATA, text_of("echo", *values))
            case ["say", str(words)]:
                for page in self.pages:
                    write_frame(page, DATA, text_of("said", words))
                    if page.transport.get_write_buffer_size() > MAX_UNREAD:
                        page.transport.abort()

    async def run(self, port_file):
        for number in (signal.SIGTERM, signal.SIGINT):
            asyncio.get_running_loop().add_signal_handler(number, self.stopped.set)
        server = await asyncio.start_server(self.serve, "127.0.0.1", 0, backlog=1024)
        content = struct.pack("=i", server.sockets[0].getsockname()[1]) + self.cookie
        # Under another name first: nobody finds half of it. A leftover is of one that was killed.
        new = port_file.with_suffix(".new")
        new.unlink(missing_ok=True)
        new.touch(mode=0o600, exist_ok=False)
        new.write_bytes(content)
        new.rename(port_file)
        null = os.open(os.devnull, os.O_RDWR)
        for stream in range(3):  # who reads the browser's output would wait for this process too
            os.dup2(null, stream)
        idle = 0
        while idle < IDLE_SECONDS and not self.stopped.is_set():
            with contextlib.suppress(TimeoutError):
                await asyncio.wait_for(self.stopped.wait(), 1)
            idle = 0 if self.pages else idle + 1
        server.close()
        with contextlib.suppress(FileNotFoundError):
            if port_file.read_bytes() == content:
                port_file.unlink()


def take_lock(path):
    """Held until the process ends, which is after the port file is gone. The file stays."""
    lock = os.open(path, os.O_RDWR | os.O_CREAT, 0o600)  # close-on-exec, as all of Python's
    for _ in range(200):  # ten seconds
        with contextlib.suppress(BlockingIOError):
            return fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        time.sleep(0.05)
    sys.exit(0)  # another one runs, and stays


def main():
    # Kill finds engines by the process name, which is that of the interpreter until it is set.
    pathlib.Path("/proc/self/comm").write_text("MurmelParlPlugin")
    while os.open(os.devnull, os.O_RDWR) <= 2:  # no file of ours gets a standard stream's number
        pass
    with contextlib.suppress(OSError):
        os.setsid()  # fails for the leader of a group, as a shell makes it
    signal.signal(signal.SIGHUP, signal.SIG_IGN)  # Python ignores SIGPIPE by itself
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    os.umask(0o077)
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    folder = pathlib.Path(os.environ.get("XDG_CONFIG_HOME") or pathlib.Path.home() / ".config",
                          "murmel-murmelparlplugin")
    folder.mkdir(mode=0o700, parents=True, exist_ok=True)
    take_lock(folder / "murmelparlplugin_lock")
    logging.basicConfig(filename=folder / "murmelparlplugin.log", filemode="w", level=logging.INFO,
                        format="%(asctime)s %(levelname)s %(message)s")
    asyncio.run(Engine().run(folder / "murmelparlplugin_port"))


if __name__ == "__main__":
    main()

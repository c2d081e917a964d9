"""The stand-in engine's own process, seen from the other end of the link."""
import contextlib
import fcntl
import json
import os
import pathlib
import re
import resource
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

ENGINE = os.path.join(os.environ["MPBP_BUILD_DIR"], "engine", "MurmelParlPlugin")
COOKIE, DATA, COOKIE_RESPONSE, HOST_DESCRIPTION = 1, 2, 3, 4
TIMEOUT = 30
OUTPUT = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT}


def read(path):
    """The file's bytes; none when there is no such file."""
    try:
        return path.read_bytes()
    except FileNotFoundError:
        return b""


def open_files(pid):
    """What a process has open, by descriptor; it may open and close more meanwhile."""
    folder, files = pathlib.Path("/proc", str(pid), "fd"), {}
    for entry in os.listdir(folder):
        with contextlib.suppress(FileNotFoundError):
            files[entry] = os.readlink(folder / entry)
    return files


class Plugin:
    """A connection as a plug-in makes it. In texts a character stands for a byte."""

    def __init__(self, port_file):
        port, self.cookie = port_file[:4], port_file[4:20].decode("latin-1")
        self.socket = socket.create_connection(
            ("127.0.0.1", int.from_bytes(port, sys.byteorder)), TIMEOUT)
        self.stream = self.socket.makefile("rb")

    def close(self):
        self.stream.close()
        self.socket.close()

    def send(self, *texts, kind=DATA):
        """Sends the texts at once, so that the other end reads all of them in one turn."""
        frames = [text.encode("latin-1") for text in texts]
        self.socket.sendall(b"".join(struct.pack(">HI", kind, len(f)) + f for f in frames))

    def receive(self):
        """The next frame; nothing at the end of the stream."""
        with contextlib.suppress(ConnectionResetError):
            if header := self.stream.read(6):
                kind, length = struct.unpack(">HI", header)
                return kind, self.stream.read(length).decode("latin-1")
        return None

    def next(self):
        kind, text = self.receive()
        return text if kind == DATA else f"a frame of type {kind}"

    def ask(self, text):
        self.send(text)
        return self.next()


class StandinEngineTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="mpbp-engine-test-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name, "murmel-murmelparlplugin")
        self.port_file = self.folder / "murmelparlplugin_port"
        self.lock_file = self.folder / "murmelparlplugin_lock"
        self.log_file = self.folder / "murmelparlplugin.log"

    def start(self, *arguments, mode="", idle="", **options):
        process = subprocess.Popen(
            [ENGINE, *arguments], encoding="utf-8", **options,
            env=dict(os.environ, XDG_CONFIG_HOME=str(self.folder.parent), MURMEL_ENGINE_MODE=mode,
                     MURMEL_ENGINE_IDLE_SECONDS=idle))
        self.addCleanup(self.end, process)
        return process

    @staticmethod
    def end(process, number=signal.SIGKILL):
        with process:
            process.send_signal(number)

    def wait_until(self, condition):
        deadline = time.monotonic() + TIMEOUT
        while not condition():
            self.assertLess(time.monotonic(), deadline, "not in time")
            time.sleep(0.005)

    def connect(self):
        self.wait_until(lambda: len(read(self.port_file)) >= 20)
        plugin = Plugin(read(self.port_file))
        self.addCleanup(plugin.close)
        return plugin

    def authorize(self, plugin):
        plugin.send(plugin.cookie, kind=COOKIE)
        self.assertEqual((COOKIE_RESPONSE, plugin.cookie), plugin.receive())
        plugin.send('{"url":"https://a/"}', kind=HOST_DESCRIPTION)

    def link(self, engine):
        """A connection that is authorized, with the announcement of this engine read."""
        plugin = self.connect()
        self.authorize(plugin)
        word, about = json.loads(plugin.next())
        self.assertEqual(("qw", "stand-in", engine.pid), (word, about["engine"], about["pid"]))
        return plugin

    def ends_with(self, engine, status, complaint=""):
        self.assertEqual(status, engine.wait(TIMEOUT))
        self.assertIn(complaint, engine.stdout.read() if engine.stdout else "")

    def test_what_is_no_request_or_malformed_is_echoed(self):
        plugin = self.link(self.start())
        for text in ("", "{}", "[1]", '["unknown", 1 ]', '["echo",  {"b":1, "a":2}]', '["silent",-1]',
                     '["slow",1e300]', '["many",10000,100000]', '["large",67108865]',
                     '["ask-http","GET","nowhere"]', '["ask-proxy"]', '["ask-permission","1"]',
                     '["remoting-begin",{}]', "\xff\0\xfe", '["a",' + "[" * 100_000,
                     '["say httprequest and qwerty"]', '["mpbp-","qw "]'):
            self.assertEqual(text, plugin.ask(text))

    def test_texts_come_many_large_and_slow_and_one_client_is_dropped_or_not_heard(self):
        engine = self.start()
        plugin = self.link(engine)
        self.assertEqual('["many",0,"xx"]', plugin.ask('["many",2,2]'))
        self.assertEqual('["many",1,"xx"]', plugin.next())
        self.assertEqual(3_000_012, len(plugin.ask('["large",3000000]')))
        start = time.monotonic()
        plugin.send('["slow",50,"later"]', "at once")
        self.assertEqual("at once", plugin.next())
        self.assertEqual('["slow",50,"later"]', plugin.next())
        self.assertGreater(time.monotonic() - start, 0.045)  # the engine counts milliseconds

        other = self.link(engine)
        plugin.send('["silent",300]', "lost")
        self.assertEqual("heard", other.ask("heard"))
        time.sleep(0.4)
        self.assertEqual("again", plugin.ask("again"))
        plugin.send('["drop"]')
        self.assertIsNone(plugin.receive())
        self.assertEqual("still here", other.ask("still here"))

    def test_it_removes_its_port_file_unless_it_crashes(self):
        for way, status in (("quit", 0), (signal.SIGTERM, 0), (signal.SIGINT, 0), ("idle", 0),
                            ("crash", -signal.SIGABRT)):
            with self.subTest(way=way):
                engine = self.start(idle="1" if way == "idle" else "")
                plugin = self.link(engine)
                if way == "idle":
                    plugin.close()  # the time begins when the last one leaves
                elif isinstance(way, str):
                    plugin.send(f'["{way}"]')
                else:
                    engine.send_signal(way)
                self.ends_with(engine, status)
                self.assertEqual(way == "crash", self.port_file.exists())

    def test_a_second_engine_waits_for_the_end_of_the_first_and_gives_up_when_it_stays(self):
        for number in (signal.SIGTERM, signal.SIGKILL, None):
            first = self.start()
            plugin = self.link(first)
            file = read(self.port_file)
            used = resource.getrusage(resource.RUSAGE_CHILDREN)
            second = self.start(**OUTPUT)
            self.wait_for_lock(second)
            if number is None:
                third = self.start()
                self.wait_for_lock(third)
                self.end(third, signal.SIGTERM)
                self.ends_with(second, 0, "MurmelParlPlugin: another one is running.\n")
                now = resource.getrusage(resource.RUSAGE_CHILDREN)
                self.assertLess(now.ru_utime + now.ru_stime - used.ru_utime - used.ru_stime, 1)
            self.assertEqual("still served", plugin.ask("still served"))
            self.assertEqual(file, read(self.port_file))
            if number:
                self.end(first, number)
                self.wait_until(lambda: read(self.port_file) not in (file, b""))
                self.link(second)
                self.end(second)
                self.port_file.unlink()

    def wait_for_lock(self, engine):
        """Until it has come as far as to the lock."""
        self.wait_until(lambda: str(self.lock_file) in open_files(engine.pid).values())

    def test_it_detaches_itself_once_it_listens(self):
        # Without streams, the numbers of the standard ones must not be given to its lock.
        for options in (OUTPUT, {"preexec_fn": lambda: os.closerange(0, 3)}):
            engine = self.start(**options)
            plugin = self.link(engine)
            if engine.stdout:
                self.assertEqual("", engine.stdout.read())  # to its end
            self.assertEqual(engine.pid, os.getsid(engine.pid))
            files = open_files(engine.pid)
            self.assertEqual(["/dev/null"] * 3, [files[fd] for fd in "012"])
            engine.send_signal(signal.SIGHUP)
            self.assertEqual("still here", plugin.ask("still here"))
            with open(self.lock_file, "rb") as lock, self.assertRaises(BlockingIOError):
                fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
            self.assertIn(b"MessageSocket listening, port=", read(self.log_file))
            for file in (self.port_file, self.lock_file, self.log_file):
                self.assertEqual(0o100600, file.stat().st_mode, file)
            self.end(engine, signal.SIGTERM)

    def test_it_stays_in_the_foreground_when_told_and_says_what_is_wrong_before_it_detaches(self):
        engine = self.start("--foreground", **OUTPUT)
        self.link(engine)
        self.assertEqual(os.getsid(0), os.getsid(engine.pid))
        engine.send_signal(signal.SIGHUP)
        self.ends_with(engine, 0, "MessageSocket listening, port=")
        self.assertFalse(self.port_file.exists())
        self.ends_with(self.start("--forground", **OUTPUT), 2, "takes no arguments but")
        self.lock_file.unlink()
        self.lock_file.mkdir()
        self.ends_with(self.start(**OUTPUT), 1, f"cannot lock {self.lock_file}")

    def test_hundreds_are_served_at_a_time_and_what_is_too_much_is_disconnected(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        if 0 <= hard < 2048:
            self.skipTest("too few descriptors")
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))
        resource.setrlimit(resource.RLIMIT_NOFILE, (256, hard))  # the engine raises it for itself
        engine = self.start()
        resource.setrlimit(resource.RLIMIT_NOFILE, (2048, hard))
        plugins = [self.connect() for _ in range(900)]
        for plugin in plugins:
            self.authorize(plugin)
        for plugin in plugins:
            self.assertRegex(plugin.next(), r'^\["qw",')
        # Fills the places that are left, and more.
        plugins += [self.connect() for _ in range(1024 - len(plugins))]
        self.assertIsNone(self.connect().receive())
        self.authorize(plugins[0])
        for plugin in plugins:
            plugin.close()
        self.link(engine)  # the places are free again

    def test_it_asks_the_plugin_and_tells_the_page_what_it_answered(self):
        plugin = self.link(self.start())
        answer = '["httpresponse",{},{{"error":0}},"HTTP/1.1 200 "]'
        event = '["mpbp-terminate-remoting-event","","s1"]'
        number = 0
        for text, told in (
                ('["ask-http","GET","http://h.example:81/p?q","A: b\\n","body"]',
                 '["httprequest",{},{{"host":"h.example","path":"/p?q","port":81,"proto":"http",'
                 '"verb":"GET"}},"A: b\\n","body"]'),
                (answer, f'["http-result",{answer}]'),
                ('["ask-proxy","http://h/"]', '["getproxyforurl",{},"http://h/"]'),
                ('["proxyforurl",{},"DIRECT"]', '["proxy-result","http://h/","DIRECT"]'),
                ('["ask-permission",2]', '["mpbp-request-permission","{0}",2,{0}]'),
                ('["mpbp-request-permission-result",2,"{0}",{0},true]',
                 '["permission-result",2,true]'),
                ('["remoting-begin","s1"]', '["mpbp-start-remoting","s1"]'),
                (event, '["remoting-ended","s1"]'),
                ('["remoting-stop","s1"]', '["mpbp-stop-remoting","s1"]')):
            reply = plugin.ask(text.format(number))
            if "ask-" in text:
                number = json.loads(reply)[1]
            self.assertEqual(told.format(number), reply)
        answer = answer.format(1)
        # What nothing asked for reaches the page too, but for comments.
        for text in (answer, event, '["proxyforurl"]', '["httpresponse",-1]',
                     '["mpbp-request-permission-result",{}]'):
            self.assertEqual(["unasked", text], json.loads(plugin.ask(text)))
        plugin.send('["comment","JS layer took 1001ms to handle message."]')
        self.assertEqual("next", plugin.ask("next"))

    def test_what_the_plugin_would_act_on_comes_back_in_quotes_whatever_brings_it(self):
        plugin = self.link(self.start())
        words = re.compile('"(qw|httprequest|getproxyforurl)"')
        target = '{"host":"127.0.0.1","path":"/","port":1,"proto":"http","verb":"GET"}'
        for text in (f'["httprequest",1,{target}]', '["echo","getproxyforurl"]',
                     '["slow",1,{"httprequest":1}]', '["slow","malformed","qw"]',
                     'no JSON "httprequest" either',
                     '\xef\xbb\xbf [ /* \\*/ "mpbp-start-remoting","a"]',
                     '["mpbp\\u002dstop-remoting","a"]',
                     '["\\u006Dpbp-request-permission","1",0,1] and more',
                     '["mpbp-start-remoting","a"', '[["mpbp-start-remoting","a"]]'):
            echo = plugin.ask(text)
            self.assertNotRegex(echo, words)
            self.assertEqual(["echo-quoted", text], json.loads(echo))
        # Words within what is told about answers, the page's and a fetched page's.
        number = json.loads(plugin.ask('["ask-http","GET","http://h/"]'))[1]
        proxy = json.loads(plugin.ask('["ask-proxy","qw"]'))[1]
        tag = json.loads(plugin.ask('["ask-permission",0]'))[3]
        plugin.ask('["remoting-begin","getproxyforurl"]')
        for kind, answer in (
                ("http-result", f'["httpresponse",{number},{{"qw":1}},"[\\"httprequest\\"]",'
                                '["getproxyforurl"]]'),
                ("proxy-result", f'["proxyforurl",{proxy},"httprequest"]'),
                ("permission-result",
                 f'["mpbp-request-permission-result",0,"{tag}",{tag},["httprequest"]]'),
                ("remoting-ended", '["mpbp-terminate-remoting-event","","getproxyforurl"]'),
                ("unasked", '["httpresponse",1,"httprequest"]')):
            told = plugin.ask(answer)
            self.assertNotRegex(told, words)
            self.assertEqual(kind, json.loads(told)[0])

    def test_it_misbehaves_as_told(self):
        for mode, says_cookie, answers in (
                ("mute-handshake", True, ["silence"]), ("bad-cookie", True, [(COOKIE_RESPONSE, "")]),
                ("drop-after-auth", True, ["the cookie", None]), ("drop-after-connect", False, [None]),
                ("no-qw", True, ["the cookie", (DATA, "only the echo")])):
            with self.subTest(mode):
                engine = self.start(mode=mode)
                plugin = self.connect()
                if says_cookie:
                    plugin.send(plugin.cookie, kind=COOKIE)
                for answer in answers:
                    if answer == "silence":
                        plugin.socket.settimeout(0.3)
                        self.assertRaises(TimeoutError, plugin.receive)
                        continue
                    if mode == "no-qw":
                        plugin.send("only the echo")
                    expected = (COOKIE_RESPONSE, plugin.cookie) if answer == "the cookie" else answer
                    self.assertEqual(expected, plugin.receive())
                self.end(engine, signal.SIGTERM)
                self.wait_until(lambda: not self.port_file.exists())
        for mode in ("exit-at-once", "no-port-file", "no-such-mode"):
            engine = self.start(mode=mode, idle="1")
            while engine.poll() is None:
                self.assertFalse(self.port_file.exists(), mode)
            self.assertEqual(mode == "no-such-mode", engine.returncode != 0, mode)


if __name__ == "__main__":
    signal.alarm(110)
    unittest.main()

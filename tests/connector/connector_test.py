"""mpbp-connector with the stand-in engine's own process, and this program for a browser."""
import base64
import contextlib
import json
import os
import pathlib
import pty
import signal
import struct
import subprocess
import tempfile
import time
import unittest

from native import BUILD, PAGE, READY, VERSION, Connector

PROGRAM = str(BUILD / "mpbp-connector")


class ConnectorTest(unittest.TestCase):
    def connector(self, *args, **words):
        connector = Connector(*args, **words)
        self.addCleanup(connector.close)
        return connector

    def read_closed(self, connector, link):
        return connector.read_until(lambda m: m["type"] == "closed" and m["link"] == link)["code"]

    def test_a_link_has_the_modules_reports_texts_and_refusals(self):
        connector = self.connector()
        self.assertEqual(
            ['["f-connect",{"error":-1,"step":"0"}]', '["f-connect",{"step":"2"}]',
             '["f-connect",{"step":"0"}]', '["f-connect",{"step":"1"}]',
             '["f-connect",{"step":"3"}]', READY], connector.open_ready(1))
        self.assertIn('["qw",', connector.read_text(1))
        for text in ("no JSON", '["echo","\0\u2028\U0001f600"]', '["echo","' + "ü\n\"" * 99999 + '"]'):
            connector.send(1, text)
            self.assertEqual(text, connector.read_text(1))
        # Requests of the engine, where the browser has no private service.
        connector.send(1, '["ask-permission",1]')
        self.assertEqual('["permission-result",1,false]', connector.read_text(1))
        connector.send(1, '["remoting-begin","r"]')
        self.assertEqual('["remoting-ended","r"]', connector.read_text(1))
        connector.send(1, '["ask-proxy","http://a.example/"]')
        self.assertIn('"proxy-result"', connector.read_text(1))

        def refusal(text):
            connector.send(1, text)
            return connector.read_until(lambda m: m["type"] == "refused")

        self.assertEqual({"type": "refused", "link": 1, "code": "text-refused",
                          "message": "Method call not allowed"},
                         refusal('["mpbp-request-permission-result",1,"a",7,true]'))
        connector.send(1, '["kill",true]')
        self.assertEqual(['["f-dead"]', '["f-killed"]'],
                         connector.read_texts_until(1, '["f-killed"]'))
        self.assertEqual("Send returned false", refusal("a text")["message"])
        connector.write(type="start", link=1)
        connector.write(type="start", link=1)  # runs already
        self.assertEqual(READY, connector.read_texts_until(1, READY)[-1])
        self.assertEqual(0, connector.end())
        log = connector.log()
        self.assertIn("Call: Method call not allowed", log)
        self.assertIn("Permission request failed. permission_type 1, error -6", log)

    def test_the_connector_decides_which_pages_are_served(self):
        corporate = "http://a.corp.murmel.example"
        for options, served in (("", {PAGE}), ("plugin_enable_corp_host=1\n", {PAGE, corporate})):
            connector = self.connector(options)
            origins = [PAGE, corporate, "http://www.murmel.example", "null", "", "https://a.example",
                       "https://corp.murmel.example"]
            for link, origin in enumerate(origins, 1):
                connector.open(link, origin)
                if origin in served:
                    self.assertIn("f-connect", connector.read_text(link))
                else:
                    self.assertEqual("page-refused", self.read_closed(connector, link))
                    # The start came for a link that is not there.
                    self.assertEqual("unknown-link", self.read_closed(connector, link))
            self.assertEqual(0, connector.end())

    def test_one_process_serves_many_links_and_sleeps_when_idle(self):
        connector = self.connector()
        connector.open_ready(1)
        first = connector.status("VmRSS")
        for link in range(2, 52):
            connector.open_ready(link)
        self.assertLess(first, 8 * 1024 * SANITIZED)
        self.assertLess(connector.status("VmRSS") - first, 50 * 100 * SANITIZED)
        time.sleep(0.2)
        before = connector.status("voluntary_ctxt_switches")
        time.sleep(1)
        self.assertEqual(before, connector.status("voluntary_ctxt_switches"))
        for link in (1, 51):
            connector.write(type="close", link=link)
        connector.send(51, "x")
        self.assertEqual("unknown-link", self.read_closed(connector, 51))
        connector.send(25, '["echo","still there"]')
        while connector.read_text(25) != '["echo","still there"]':
            pass
        self.assertEqual(0, connector.end())

    def test_what_is_no_background_ends_it_with_status_1(self):
        hello = f'{{"type":"hello","version":"{VERSION}"}}'
        start = '{"type":"start","link":%s}'
        for size in (0, (1 << 20) + 1, 0xffffffff):
            self.expect_end(struct.pack("=I", size))
        for frames in (["{"], ["[]"], ['{"type":1}'], [start % 1], [hello, hello],
                       [hello, '{"type":"start"}'], [hello, start % -1],
                       [hello, '{"type":"open","link":1}'],
                       [hello, '{"type":"text","link":0,"piece":"{}"}'],
                       [hello, '{"type":"ack","link":0,"pieces":1}'], [hello, "[" * 100000]):
            self.expect_end(b"".join(struct.pack("=I", len(f)) + f.encode() for f in frames))

    def expect_end(self, data):
        with self.subTest(data[:99]):
            connector = self.connector(hello=False)
            connector.write_bytes(data)
            self.assertEqual(1, connector.process.wait(10))
            self.assertIn("The browser's ", connector.log())

    def test_what_is_wrong_with_one_link_ends_that_link_alone(self):
        connector = self.connector()
        connector.open_ready(1)
        for link, message in enumerate((
                {"type": "open", "origin": PAGE}, {"type": "text"}, {"type": "text", "piece": 5},
                {"type": "text", "piece": "x", "more": "x"}, {"type": "ack", "pieces": 10 ** 6},
                {"type": "ack"}, {"type": "ack", "pieces": -1}, {"type": "none"}), 2):
            connector.write(type="open", link=link, origin=PAGE)
            connector.write(link=link, **message)
            self.assertEqual("protocol-error", self.read_closed(connector, link), message)
        for kind in ("text", "start", "ack"):
            connector.write(type=kind, link=77)
            self.assertEqual("unknown-link", self.read_closed(connector, 77))
        connector.send(1, '["echo","unharmed"]')
        self.assertIn('["echo","unharmed"]', connector.read_texts_until(1, '["echo","unharmed"]'))
        for link in range(100, 1100):
            connector.write(type="open", link=link, origin=PAGE)
        self.assertEqual("too-many-links", self.read_closed(connector, 1099))
        self.assertEqual(0, connector.end())

    def test_the_end_of_the_input_ends_it_in_every_state(self):
        def ready(then):
            return lambda c: (c.open_ready(1), then(c))

        states = {
            "before hello": None,
            "half a frame": lambda c: c.write_bytes(b"\x10\0"),
            "under way": lambda c: (c.open(1), c.read_text(1)),
            "half a text": ready(lambda c: c.write(type="text", link=1, piece="x", more=True)),
            "output waits": ready(lambda c: (c.send(1, '["many",1000,30000]'), time.sleep(0.5))),
            "killed": ready(lambda c: (c.send(1, '["kill",true]'),
                                       c.read_texts_until(1, '["f-killed"]')))}
        for name, bring_about in states.items():
            with self.subTest(name):
                connector = self.connector(hello=bring_about is not None)
                if bring_about:
                    bring_about(connector)
                begin = time.monotonic()
                self.assertEqual(0, connector.end())
                self.assertLess(time.monotonic() - begin, 1 * SANITIZED)

    def test_a_page_that_does_not_listen_holds_up_the_engine_and_no_other_page(self):
        connector = self.connector()
        connector.open_ready(1)
        connector.open_ready(2)
        connector.read_text(2)
        before = connector.status("VmRSS")
        # 60 MB for a page that acknowledges nothing, and texts of another one meanwhile.
        connector.send(1, '["many",1000,60000]')
        pieces = []

        def read_for(link):
            """The next piece for this link, not acknowledged; those of the page are kept."""
            while True:
                message = connector.read_object()
                if message["type"] == "text" and message["link"] == 1:
                    pieces.append(message)
                if message["type"] == "text" and message["link"] == link:
                    return message["piece"]

        for number in range(100):
            connector.send(2, f'["echo",{number}]')
            self.assertEqual(f'["echo",{number}]', read_for(2))
            connector.write(type="ack", link=2, pieces=1)
        time.sleep(0.3)
        self.assertLess(sum(len(p["piece"]) for p in pieces), 700_000)
        self.assertLess(connector.status("VmRSS") - before, 6000 * SANITIZED)
        # The rest comes in order once the page takes it.
        connector.write(type="ack", link=1, pieces=len(pieces))
        while not pieces[-1]["piece"].startswith('["many",999,') or pieces[-1]["more"]:
            read_for(1)
            connector.write(type="ack", link=1, pieces=1)
        texts = "".join(p["piece"] + ("" if p["more"] else "\n") for p in pieces).splitlines()
        self.assertEqual(list(range(1000)),
                         [json.loads(t)[1] for t in texts if t.startswith('["many"')])

    def test_requests_of_the_engine_go_through_the_background(self):
        connector = self.connector()
        connector.open_ready(1)
        connector.read_text(1)

        def ask(*request):
            connector.send(1, json.dumps(["ask-http", *request]))

        def answer(**response):
            connector.send(0, json.dumps(response))
            return json.loads(connector.read_text(1))[1]

        body = "b" * 200000
        ask("POST", "http://www.murmel.example:81/x", "A: b\r\n", body)
        request = json.loads(connector.read_text(0))
        self.assertEqual({"request": 1, "method": "POST", "url": "http://www.murmel.example:81/x",
                          "headers": "A: b\r\n", "body": base64.b64encode(body.encode()).decode()},
                         request)
        page = "ä" * 100000
        date = "last-modified: Thu, 01 Jan 1970 00:00:09 GMT\n"
        self.assertEqual(
            ["httpresponse", 1000, {"error": 0, "lastmodified": 9, "url": "http://y/"},
             "HTTP/1.1 200 OK\n" + date, page],
            answer(response=1, error=0, url="http://y/", status=200, statusText="OK", headers=date,
                   body=base64.b64encode(page.encode()).decode()))
        for error in (2, 3):
            ask("GET", "http://www.murmel.example/")
            number = json.loads(connector.read_text(0))["request"]
            self.assertEqual(error, answer(response=number, error=error)[2]["error"])
        ask("PUT", "http://www.murmel.example/")
        self.assertEqual(3, json.loads(connector.read_text(1))[1][2]["error"])
        # An answer for a link that is gone.
        ask("GET", "http://www.murmel.example/")
        number = json.loads(connector.read_text(0))["request"]
        connector.write(type="close", link=1)
        self.assertEqual({"cancel": number}, json.loads(connector.read_text(0)))
        connector.send(0, json.dumps({"response": number, "error": 2}))
        connector.open_ready(2)
        connector.send(2, '["uploadbrowserpluginlog",0,{"jid":"a@b.example"}]')
        upload = json.loads(connector.read_text(0))
        self.assertEqual("HTTPS://crash.murmel.example:443/cr/report", upload["url"])
        self.assertIn(b"a@b.example", base64.b64decode(upload["body"]))
        connector.send(0, json.dumps({"response": upload["request"], "error": 0, "status": 200,
                                      "body": "no base64"}))
        self.assertEqual(1, connector.process.wait(10))

    def test_the_engine_holds_no_pipe_of_the_browsers(self):
        connector = self.connector()
        connector.open_ready(1)
        connector.read_text(1)
        connector.process.kill()
        with contextlib.suppress(EOFError):
            while True:
                connector.read_bytes(1)  # to the end, which comes though the engine lives on
        second = self.connector(config=connector.config)
        # The engine is still there.
        self.assertEqual('["f-connect",{"step":"0"}]', second.open_ready(1)[0])

    def test_the_command_line(self):
        def run(*words, **environment):
            done = subprocess.run([PROGRAM, *words], capture_output=True, text=True, timeout=30,
                                  env=dict(os.environ, **environment), stdin=subprocess.DEVNULL)
            return done.returncode, done.stdout, done.stderr

        self.assertEqual((0, VERSION + "\n", ""), run("--version"))
        self.assertIn("--register", run("--help")[1])
        for words in (["--manifest"], ["--manifest", "opera"], ["--manifest", "firefox", "a/b"],
                      ["--none"], ["--version", "x"]):
            self.assertEqual(2, run(*words)[0], words)
        manifest = json.loads(run("--manifest", "firefox")[1])
        self.assertEqual(["example.murmel.parl", PROGRAM, ["parl@murmel.example"]],
                         [manifest["name"], manifest["path"], manifest["allowed_extensions"]])
        manifest = json.loads(run("--manifest", "chromium")[1])
        self.assertRegex(manifest["allowed_origins"][0], "^chrome-extension://[a-p]{32}/$")

        with tempfile.TemporaryDirectory() as home:
            files = [pathlib.Path(home, folder, "example.murmel.parl.json") for folder in (
                ".config/chromium/NativeMessagingHosts",
                ".config/google-chrome/NativeMessagingHosts", ".mozilla/native-messaging-hosts")]
            words = {"HOME": home, "XDG_CONFIG_HOME": ""}
            other = files[0].with_name("other.json")
            other.parent.mkdir(parents=True)
            other.write_text("{}")
            self.assertEqual(0, run("--register", **words)[0])
            self.assertEqual(manifest, json.loads(files[0].read_text()))
            self.assertIn("replaced " + str(files[2]), run("--register", **words)[1])
            files[1].write_text('{"name": "somebody else\'s"}')
            status, _, errors = run("--register", **words)
            self.assertEqual((1, True), (status, "left alone" in errors))
            files[2].write_text(json.dumps(dict(manifest, path="/elsewhere")))
            status, output, errors = run("--unregister", **words)
            self.assertEqual(1, status)
            self.assertIn("for /elsewhere", output)
            self.assertEqual([False, True, True, True],
                             [f.exists() for f in (*files, other)])
            self.assertEqual(0, run("--register", home + "/d")[0])
            self.assertTrue(pathlib.Path(home, "d/firefox/example.murmel.parl.json").exists())
            self.assertEqual(0, run("--unregister", home + "/d")[0])
            self.assertFalse(pathlib.Path(home, "d/chromium/example.murmel.parl.json").exists())

        leader, follower = pty.openpty()
        by_hand = subprocess.run([PROGRAM], stdin=follower, capture_output=True, text=True,
                                 timeout=30, check=False)
        os.close(leader)
        os.close(follower)
        self.assertEqual(2, by_hand.returncode)
        self.assertIn("A browser with the", by_hand.stderr)


# A sanitizer takes memory and time of its own.
SANITIZED = 1 if subprocess.run(["grep", "-q", "__asan_init\\|__tsan_init", PROGRAM],
                                check=False).returncode else 40

if __name__ == "__main__":
    signal.alarm(250)
    unittest.main()

"""The engine check: what it says of this tree's engines, and of the example when it is spoiled."""
import concurrent.futures
import json
import os
import pathlib
import signal
import subprocess
import tempfile
import unittest

BUILD = pathlib.Path(os.environ["MPBP_BUILD_DIR"])
PROGRAM = str(BUILD / "mpbp-engine-check")
STANDIN = str(BUILD / "engine" / "MurmelParlPlugin")
EXAMPLE = pathlib.Path(__file__).parents[2] / "examples" / "engine.py"
# Less than it has, to save the tests' time; more than the check asks for.
EXAMPLE_TEXT = EXAMPLE.read_text().replace("range(200):  # ten", "range(120):  # six")

# The check that must find it, and what is replaced by what in the example.
SPOILED = [
    ("start", "new.rename(port_file)", "new.unlink()"),
    ("start", 'await asyncio.start_server(', 'sys.exit(3) or await asyncio.start_server('),
    ("port-file-form", '"=i"', '">i"'),
    ("port-file-form", "+ self.cookie\n", "+ self.cookie[:15]\n"),
    ("port-file-form", "server.sockets[0].getsockname()[1]", "1"),
    ("port-file-new", "new.rename(port_file)", "port_file.write_bytes(content)"),
    ("port-file-mode", "new.write_bytes(content)", "new.write_bytes(content), new.chmod(0o640)"),
    ("port-file-end", "if port_file.read_bytes() == content:", "if True:"),
    ("port-file-end", "port_file.unlink()", "pass"),
    ("loopback", '"127.0.0.1", 0', '"0.0.0.0", 0'),
    ("cookie", "COOKIE_RESPONSE, self.cookie if", "COOKIE_RESPONSE, self.cookie[::-1] if"),
    ("fresh-cookie", "secrets.token_hex(8).encode()", 'b"0123456789abcdef"'),
    ("wrong-cookie", "secrets.compare_digest(payload, self.cookie)",
     "self.cookie.startswith(payload)"),
    ("wrong-cookie", 'logging.error("type %d before the cookie: dropped", kind)', "writer.close()"),
    ("split-frames", "await reader.readexactly(length)", "await reader.read(length)"),
    ("joined-frames", "await writer.drain()", "reader._buffer.clear()"),
    ("unknown-types", 'logging.warning("type %d is unknown: dropped", kind)', "writer.close()"),
    ("qw", '"qw", {"engine"', '"hello", {"engine"'),
    ("clients", "right = secrets", "right = len(self.pages) < 9 and secrets"),
    ("page-texts", '{word}"{hidden}', '{word}"{tail}'),
    ("page-texts", 'self.on_text(writer, json.loads(payload.decode(errors="replace")))',
     'write_frame(writer, DATA, payload)'),
    ("page-texts", 'self.on_text(writer, json.loads(payload.decode(errors="replace")))',
     're.search(b"qw|http|proxy", payload) or write_frame(writer, DATA, payload)'),
    ("large-text", "300 << 20", "1 << 20"),
    ("process-name", 'write_text("MurmelParlPlugin")', 'write_text("Murmel")'),
    ("detached", "os.setsid()", "pass"),
    ("detached", "in range(3)", "in range(1, 3)"),
    ("detached", "signal.SIGHUP, signal.SIG_IGN", "signal.SIGHUP, signal.SIG_DFL"),
    ("second-start", "fcntl.LOCK_EX", "fcntl.LOCK_SH"),
    ("second-start", "range(120)", "range(1)"),
    ("second-start", "range(120)", "range(10 ** 6)"),
    ("sigterm", "add_signal_handler(number, self.stopped.set)",
     "add_signal_handler(number, print)"),
]


class EngineCheckTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="mpbp-enginecheck-test-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        # Where the check keeps its folder, and a user's own files, which it leaves alone.
        self.scratch = self.folder / "tmp"
        self.scratch.mkdir()
        self.environment = dict(os.environ, TMPDIR=str(self.scratch), HOME=str(self.folder),
                                XDG_CONFIG_HOME=str(self.folder / "config"))

    def tearDown(self):
        self.assertEqual([], list(self.scratch.iterdir()))
        self.assertFalse((self.folder / "config").exists())
        self.assertEqual([], self.engines())

    def engines(self):
        """The processes of engines that this test is answerable for."""
        mark = f"TMPDIR={self.scratch}".encode()
        found = []
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                if mark in (process / "environ").read_bytes():
                    found.append((process / "cmdline").read_bytes())
            except OSError:
                pass  # it has ended
        return found

    def check(self, *arguments, **variables):
        """The exit status, and what each check said, by its name."""
        result = subprocess.run([PROGRAM, "--json", *map(str, arguments)], stdout=subprocess.PIPE,
                                env=dict(self.environment, **variables))
        checks = json.loads(result.stdout)["checks"]
        return result.returncode, {each["name"]: each for each in checks}

    def faults(self, *arguments, **variables):
        status, checks = self.check(*arguments, **variables)
        found = [f"{name}: {each['message']}" for name, each in checks.items()
                 if each["status"] in ("fault", "warning")]
        self.assertEqual(1 if found else 0, status)
        return found

    def spoiled(self, number, old, new):
        self.assertEqual(1, EXAMPLE_TEXT.count(old), old)
        program = self.folder / f"engine{number}"
        program.write_text(EXAMPLE_TEXT.replace(old, new))
        program.chmod(0o755)
        return self.faults(program)

    def test_the_engines_of_this_tree_have_no_fault(self):
        for program in (STANDIN, EXAMPLE):
            status, checks = self.check("--words", "echo,say", program)
            self.assertEqual((0, []), (status, [each for each in checks.values()
                                                if each["status"] != "ok"]))
            self.assertIn("came back, none", checks["page-texts"]["message"])

    def test_each_spoiled_engine_is_found_by_exactly_the_right_check(self):
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            runs = [(check, new, pool.submit(self.spoiled, number, old, new))
                    for number, (check, old, new) in enumerate(SPOILED)]
        for check, new, run in runs:
            with self.subTest(check=check, new=new):
                self.assertEqual([check], [fault.split(":")[0] for fault in run.result()])

    def test_an_engine_that_is_silent_dead_or_no_program_ends_in_a_fault(self):
        no_program = self.folder / "text"
        no_program.write_text("no program")
        for program, mode, fault in (
                (STANDIN, "mute-handshake", "cookie: The cookie was not answered"),
                (STANDIN, "drop-after-auth", "cookie: When the cookie was sent a second time"),
                (STANDIN, "exit-at-once", "start: The engine ended with status 0"),
                (STANDIN, "no-port-file", "start: After 15 seconds there is no port file"),
                (STANDIN, "no-such-mode", "start: The engine ended with status 2 and wrote no port "
                                          "file; it printed: MurmelParlPlugin: MURMEL_ENGINE_MODE"),
                (no_program, "", "start: ")):
            found = self.faults(program, MURMEL_ENGINE_MODE=mode)
            self.assertEqual((1, fault), (len(found), found[0][:len(fault)]))
        # A check that is chosen alone says it too.
        self.assertEqual(1, len(self.faults("--only", "qw", STANDIN, MURMEL_ENGINE_MODE="no-qw")))
        self.assertEqual(
            ["qw"], list(self.check("--only", "qw", STANDIN, MURMEL_ENGINE_MODE="bad-cookie")[1]))

    def test_an_engine_that_forks_itself_into_the_background_is_followed(self):
        program = self.folder / "engine"
        program.write_text(EXAMPLE_TEXT.replace(
            "    main()", "    if os.fork() == 0:\n        main()"))
        program.chmod(0o755)
        self.assertEqual([], self.faults(program))

    def test_an_interrupted_check_takes_its_engine_with_it(self):
        check = subprocess.Popen([PROGRAM, STANDIN], env=self.environment, stdout=subprocess.PIPE)
        check.stdout.readline()  # of the first check: an engine runs
        self.assertNotEqual([], self.engines())
        check.send_signal(signal.SIGTERM)
        check.stdout.read()
        self.assertNotEqual(0, check.wait())
        check.stdout.close()

    def test_what_is_used_wrongly_ends_with_status_2(self):
        for arguments in ([], ["a", "b"], ["--words", "a\"", "a"], ["--only", "qx", "a"]):
            result = subprocess.run([PROGRAM, *arguments], env=self.environment,
                                    capture_output=True)
            self.assertEqual((2, b""), (result.returncode, result.stdout))


if __name__ == "__main__":
    signal.alarm(590)
    unittest.main()

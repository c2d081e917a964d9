"""Today's browsers with the extension, the connector and the stand-in engine, for tests.

MPBP_BROWSER says which browser: chromium or firefox. Each test class starts it once; its page goes from
scene to scene, as the test says, and reports to the server.
"""
import contextlib
import json
import os
import pathlib
import queue
import shutil
import signal
import subprocess
import sys
import time

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "support"))
import browsertest  # noqa: E402
from browsertest import BUILD, TIMEOUT  # noqa: E402
from browsertest import CORP_HOST as HOST  # noqa: E402
from server import Server  # noqa: E402

KIND = os.environ.get("MPBP_BROWSER", "chromium")
PROGRAM = os.environ.get("MPBP_BROWSER_PROGRAM", KIND if KIND == "chromium" else "firefox-esr")
CONNECTOR = os.environ.get("MPBP_CONNECTOR", str(BUILD / "mpbp-connector"))
GECKO_ID = os.environ.get("MPBP_GECKO_EXTENSION_ID", "parl@murmel.example")
# What Chromium loads unpacked.
EXTENSIONS = [BUILD / "extension"]
MANIFEST = "example.murmel.parl.json"

FIREFOX_PREFERENCES = {
    "xpinstall.signatures.required": False,
    "extensions.autoDisableScopes": 0,
    "extensions.enabledScopes": 15,
    "network.dns.forceResolve": "127.0.0.1",
    "dom.security.https_first": False,
    "privacy.reduceTimerPrecision": False,
    "browser.shell.checkDefaultBrowser": False,
    "browser.aboutwelcome.enabled": False,
    "browser.startup.homepage_override.mstone": "ignore",
    "services.settings.server": "data:,",
    "datareporting.policy.dataSubmissionEnabled": False,
    "dom.disable_open_during_load": False,
    "browser.tabs.remote.separatePrivilegedContentProcess": False,
}


class Profile(browsertest.Profile):
    """With a browser's profile and the connector registered."""

    def __init__(self):
        super().__init__("mpbpconnector.log")
        self.browser = self.path / "browser"
        self.manifests = (self.browser / "NativeMessagingHosts" if KIND == "chromium"
                          else self.path / ".mozilla" / "native-messaging-hosts")
        for folder in (self.browser, self.manifests, self.path / "run"):
            folder.mkdir(parents=True, mode=0o700)
        self.register()

    def register(self, **changes):
        """Writes the connector's manifest, with these members changed."""
        printed = subprocess.run([CONNECTOR, "--manifest", KIND], check=True, capture_output=True)
        manifest = {**json.loads(printed.stdout), **changes}
        (self.manifests / MANIFEST).write_text(json.dumps(manifest))

    def unregister(self):
        (self.manifests / MANIFEST).unlink()

    def environment(self):
        environment = {name: value for name, value in os.environ.items()
                       if not name.lower().endswith("_proxy")}
        return dict(environment, HOME=str(self.path), XDG_CONFIG_HOME=str(self.path),
                    XDG_RUNTIME_DIR=str(self.path / "run"))

    def connectors(self):
        return self.processes(pathlib.Path(CONNECTOR).name[:15])


def chromium_command(profile, address, headless):
    extensions = ",".join(map(str, EXTENSIONS))
    return [PROGRAM, *(["--headless=new"] if headless else []), "--no-sandbox",
            f"--user-data-dir={profile.browser}",
            "--no-first-run", "--disable-gpu", "--disable-dev-shm-usage", "--disable-component-update",
            "--disable-sync", "--disable-default-apps", "--disable-background-networking",
            f"--disable-extensions-except={extensions}", f"--load-extension={extensions}",
            "--host-resolver-rules=MAP * 127.0.0.1", "--ignore-certificate-errors",
            "--disable-popup-blocking", "--enable-logging=stderr", address]


def firefox_command(profile, address, headless):
    extensions = profile.browser / "extensions"
    extensions.mkdir(exist_ok=True)
    shutil.copy(BUILD / "mpbp-extension.xpi", extensions / f"{GECKO_ID}.xpi")
    lines = [f"user_pref({json.dumps(name)}, {json.dumps(value)});\n"
             for name, value in FIREFOX_PREFERENCES.items()]
    (profile.browser / "user.js").write_text("".join(lines))
    database = f"sql:{profile.browser}"
    for words in (["-N", "-d", database, "--empty-password"],
                  ["-A", "-d", database, "-n", "test-ca", "-t", "CT,,", "-i", profile.path / "ca.crt"]):
        subprocess.run(["certutil", *words], check=True, capture_output=True)
    return [PROGRAM, *(["-headless"] if headless else []), "-no-remote",
            "-profile", profile.browser, address]


class BrowserTestCase(browsertest.SceneTestCase):
    """One browser for the tests of a class; nothing is left behind."""

    HEADLESS = True

    @classmethod
    def setUpClass(cls):
        cls.profile = Profile()
        cls.addClassCleanup(cls.profile.remove)
        cls.prepare(cls.profile)
        cls.server = Server(cls.profile.path)
        cls.addClassCleanup(cls.server.close)
        make_command = chromium_command if KIND == "chromium" else firefox_command
        command = make_command(cls.profile, cls.address("idle.html"), cls.HEADLESS)
        cls.output = open(cls.profile.path / "output", "w+", encoding="utf-8", errors="replace")
        cls.addClassCleanup(cls.output.close)
        cls.process = subprocess.Popen(command, env=cls.profile.environment(), cwd=cls.profile.path,
                                       stdin=subprocess.DEVNULL, stdout=cls.output, stderr=cls.output)
        cls.addClassCleanup(cls._end)

    @classmethod
    def prepare(cls, profile):
        """Before the browser starts."""

    @classmethod
    def _end(cls):
        """A browser that is told to end does, and so do its connectors."""
        cls.process.terminate()
        try:
            cls.process.wait(TIMEOUT)
        finally:
            cls.process.kill()
            deadline = time.monotonic() + 5
            while (left := cls.profile.connectors()) and time.monotonic() < deadline:
                time.sleep(0.05)
            for pid in cls.profile.processes():
                with contextlib.suppress(ProcessLookupError):
                    os.kill(pid, signal.SIGTERM if pid in cls.profile.engines() else signal.SIGKILL)
        if left:
            raise AssertionError(f"connectors outlived the browser: {left}")

    @classmethod
    def address(cls, path, host=HOST, scheme="https"):
        port = cls.server.port if scheme == "https" else cls.server.http_port
        return f"{scheme}://{host}:{port}/{path}"

    def open(self, scene, argument="", page="elements.html", host=HOST, scheme="https"):
        """Lets the page go on to this scene."""
        with contextlib.suppress(queue.Empty):  # what an earlier scene has left
            while True:
                self.server.reports.get_nowait()
        self.server.go(self.address(f"{page}?{scene}&{argument}", host, scheme))

    def report(self, name):
        """The value that a page reported under `name`; whatever came before is skipped."""
        deadline = time.monotonic() + TIMEOUT
        try:
            while True:
                found, value = self.server.reports.get(timeout=max(0.01, deadline - time.monotonic()))
                if found == "uncaught":
                    raise AssertionError(f"uncaught in the page: {value}\n{self.said()}")
                if found == name:
                    return value
        except queue.Empty:
            raise AssertionError(f"no report of {name} in time:\n{self.said()}") from None

    def said(self):
        self.output.flush()
        text = pathlib.Path(self.output.name).read_text(encoding="utf-8", errors="replace")
        log = self.profile.log.read_text(errors="replace") if self.profile.log.exists() else ""
        return "".join(text.splitlines(True)[-12:]) + "\n" + "".join(log.splitlines(True)[-12:])

"""Measures the link in one of today's browsers beside a bare native messaging echo and a WebSocket,
in one page: measure.py, with MPBP_BROWSER as the browsers' tests have it. Prints a table, and the
connector's memory and wake-ups. Ends with status 1 when an aim is missed."""
import json
import os
import pathlib
import shutil
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
TOP = HERE.parent.parent
sys.path.insert(0, str(TOP / "tests/browsers"))
import harness  # noqa: E402
import server  # noqa: E402

KIND = harness.KIND
BARE = "example.murmel.bareecho"
BARE_ID = {"chromium": "behlfdojpcohifdadlapoakmlpplchjd", "firefox": "bare-echo@murmel.example"}
LARGE_AIM_MS = {"chromium": 1500, "firefox": 3000}
RATIO_AIM = 1.3


def resident_kb(pid):
    text = pathlib.Path(f"/proc/{pid}/status").read_text("utf-8")
    return int(next(line for line in text.splitlines() if line.startswith("VmRSS")).split()[1])


def switches(pid):
    text = pathlib.Path(f"/proc/{pid}/status").read_text("utf-8")
    return sum(int(line.split()[1]) for line in text.splitlines() if "ctxt_switches" in line)


class Bench(harness.BrowserTestCase):
    """The tests' browser, with a second extension and other pages."""

    @classmethod
    def prepare(cls, profile):
        # The log as users have it.
        (profile.folder / "options").write_text(
            f"install_dir={harness.BUILD}/engine\nplugin_enable_corp_host=1\n")
        manifest = {"name": BARE, "description": "Bare echo", "type": "stdio",
                    "path": str(harness.BUILD / "bench/mpbp-native-echo")}
        if KIND == "chromium":
            manifest["allowed_origins"] = [f"chrome-extension://{BARE_ID[KIND]}/"]
        else:
            manifest["allowed_extensions"] = [BARE_ID[KIND]]
        (profile.manifests / f"{BARE}.json").write_text(json.dumps(manifest))
        if KIND == "firefox":
            folder = profile.browser / "extensions"
            folder.mkdir(exist_ok=True)
            shutil.make_archive(str(profile.path / "bare"), "zip", HERE / "extension")
            shutil.move(profile.path / "bare.zip", folder / f"{BARE_ID[KIND]}.xpi")


def main():
    server.FOLDERS = (HERE, HERE.parent, *server.FOLDERS)
    server.Handler.isolated = ("/bench.html", "/bench.js")
    harness.EXTENSIONS.append(HERE / "extension")
    socket = subprocess.Popen([harness.BUILD / "bench/mpbp-ws-echo"], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, text=True)
    port = socket.stdout.readline().strip()
    failed = []
    try:
        Bench.setUpClass()
        bench = Bench()
        # The engine runs; the connector and the extension's background are new to the browser.
        engine = subprocess.Popen([harness.BUILD / "engine/MurmelParlPlugin"],
                                  env=Bench.profile.environment(), stdin=subprocess.DEVNULL)
        while not (Bench.profile.folder / "murmelparlplugin_port").exists():
            time.sleep(0.05)
        bench.server.go(bench.address(f"bench.html?{port}"))
        harness.TIMEOUT = 300
        small = bench.report("small")
        if "error" in small:
            sys.exit(small["error"])
        pid, = Bench.profile.connectors()
        memory = resident_kb(pid)
        before = switches(pid)
        time.sleep(5)
        woken = switches(pid) - before
        result = bench.report("result")
        if "error" in result:
            sys.exit(result["error"])
        engine.terminate()
    finally:
        Bench.doClassCleanups()
        socket.stdin.close()
        socket.wait()

    print(f"{KIND}, ms          p50     p99   one per 100 ms: p50     p99")
    for name, title in (("link", "the link"), ("bare", "bare echo"), ("socket", "WebSocket")):
        row = result[name]
        print(f"  {title:14}{row['p50']:7.2f} {row['p99']:7.2f}{row['calm50']:23.2f} {row['calm99']:7.2f}")

    def check(title, value, aim, unit=""):
        missed = value > aim
        print(f"  {title:40}{value:9.2f}{unit}   at most {aim}{unit}{'   MISSED' if missed else ''}")
        if missed:
            failed.append(title)

    check("the link to the bare echo, p50", result["link"]["p50"] / result["bare"]["p50"], RATIO_AIM)
    check("the same, one per 100 ms", result["link"]["calm50"] / result["bare"]["calm50"], RATIO_AIM)
    print(f"  {'the link to the WebSocket, p50':40}{result['link']['p50'] / result['socket']['p50']:9.2f}")
    check("echo of 10 MB", result["large"], LARGE_AIM_MS[KIND], " ms")
    check("ready, of a page's first element", result["firstReady"], 400, " ms")
    check("ready, of further ones", result["ready"], 100, " ms")
    check("the connector's memory, one link", memory / 1024, 8, " MB")
    check("its wake-ups in 5 s without texts", woken, 0)
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()

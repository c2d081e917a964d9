"""Measures the link in a real browser that takes the module, beside a WebSocket in the same page; with
and without the option prompt_delivery, if this build has it. Then pages with many elements: until all
are ready, the memory, and the processor when nothing happens. Ends with status 1 when an aim is
missed."""
import collections
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent), str(HERE.parents[1] / "tests/browser")]
import harness  # noqa: E402
import report  # noqa: E402
from server import Server  # noqa: E402

OPTION = "prompt_delivery"
ROUNDS = {True: 5, False: 9}  # by --quick
ELEMENTS = {True: [0, 1, 40], False: [0, 1, 10, 40, 100]}
SETTLE = 2  # seconds until a page that has done its work is quiet
IDLE = {True: 4, False: 10}  # seconds that the processor is watched
TICKS = os.sysconf("SC_CLK_TCK")
harness.TIMEOUT = 300

# The name in the page's report, what it is, and its unit.
ROWS = [
    ("p50", "round trip of 64 B, one after the other", "ms"),
    ("calm50", "the same, about one per 100 ms", "ms"),
    ("calm99", "the same, the slowest of ten", "ms"),
    ("send", "a `send` of 64 B", "µs"),
    ("back", "1000 texts of 64 B at once, there and back", "ms"),
    ("1 MB", "1 MB there and back", "ms"),
    ("10 MB", "10 MB there and back", "ms"),
]


class Session:
    """A browser with one page of ours, a profile of its own, and a server."""

    def __init__(self, prompt, query):
        self.profile = harness.Profile()
        # The log as users have it.
        (self.profile.folder / "options").write_text(
            f"install_dir={harness.BUILD}/engine\nplugin_enable_corp_host=1\n"
            f"{OPTION}={prompt:d}\n", encoding="utf-8")
        self.server = Server()
        for file in (HERE / "bench.html", HERE / "bench.js", HERE.parent / "ways.js"):
            self.server.answers[f"/{file.name}"] = file.read_bytes()
        self.browser = harness.Browser(self.profile, [
            "--map-host", f"{harness.CORP_HOST}=127.0.0.1:{self.server.port}",
            "--page", f"http://{harness.CORP_HOST}/bench.html?{query}"])

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.browser.process.poll() is None:
            self.browser.stop()
        self.server.close()
        for pid in self.profile.processes():
            os.kill(pid, signal.SIGTERM)
        while self.profile.processes():
            time.sleep(0.05)
        shutil.rmtree(self.profile.path, ignore_errors=True)

    def processes(self):
        return set(self.profile.processes()) - set(self.profile.engines())

    def memory(self):
        """MB that the browser's processes have, each page of memory counted once."""
        kilobytes = 0
        for pid in self.processes():
            text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text("utf-8")
            kilobytes += int(next(x for x in text.splitlines() if x.startswith("Pss:")).split()[1])
        return kilobytes / 1024

    def processor(self):
        """Seconds of the processor that the browser's processes have had."""
        fields = [pathlib.Path(f"/proc/{pid}/stat").read_text("utf-8").rpartition(")")[2].split()
                  for pid in self.processes()]
        return sum(int(field[11]) + int(field[12]) for field in fields) / TICKS


def measure_ways(prompt, port, quick):
    with Session(prompt, f"{port},{ROUNDS[quick]}") as session:
        runs = session.browser.report("ways")
    return {way: {name: report.summary([run[name] for run in of_way]) for name, _, _ in ROWS}
            for way, of_way in runs.items()}


def measure_elements(prompt, count, quick):
    with Session(prompt, f"elements,{count}") as session:
        result = session.browser.report("elements")
        time.sleep(SETTLE)
        before = session.processor()
        time.sleep(IDLE[quick])
        result["idle"] = (session.processor() - before) / IDLE[quick] * 100
        result["memory"] = session.memory()
    return result


def ways_table(ways):
    head = ["", "unit", "WebSocket", "the link"]
    rows = [[title, unit, report.cell(ways[False]["socket"][name]),
             report.cell(ways[False]["link"][name])] for name, title, unit in ROWS]
    if True in ways:
        head += [f"with {OPTION}", "to the WebSocket"]
        for row, (name, _, _) in zip(rows, ROWS):
            ours, socket = ways[True]["link"][name], ways[True]["socket"][name]
            row += [report.cell(ours), f"{ours['median'] / socket['median']:.2f}"]
    return report.table(head, rows)


def elements_table(elements, prompt):
    one = elements[prompt][1]["memory"]
    rows = []
    for count, it in elements[prompt].items():
        each = report.number((it["memory"] - one) / (count - 1)) if count > 1 else "–"
        rows.append([count, *(report.number(it[name]) if count else "–" for name in ("ready", "p50")),
                     report.number(it["memory"]), each, f"{it['idle']:.1f}"])
    return report.table(["elements", "all ready, ms", "round trip, ms", "memory, MB", "each further one, MB",
                         "idle, % of a core"], rows)


def aims(ways):
    prompt = ways.get(True)
    if not prompt:
        return []
    link, socket = prompt["link"], prompt["socket"]

    def best(name, way=link):
        return min(way[name]["runs"])

    return [
        ("echo of 64 B, to the WebSocket's", link["p50"]["median"] / socket["p50"]["median"],
         best("p50") / best("p50", socket), "<=", 2, ""),
        ("echo of 64 B", link["p50"]["median"], best("p50"), "<=", 2, "ms"),
        ("about one per 100 ms, the slowest of ten", link["calm99"]["median"], best("calm99"), "<=", 2,
         "ms"),
    ]


def main():
    options = report.arguments(__doc__)
    circumstances = report.Circumstances("scripts/bench --browser", options)
    has_option = OPTION.encode() in pathlib.Path(harness.MODULE).read_bytes()
    settings = [False, True] if has_option else [False]
    with subprocess.Popen([harness.BUILD / "bench/mpbp-ws-echo"], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, text=True) as socket:
        port = socket.stdout.readline().strip()
        ways = {prompt: measure_ways(prompt, port, options.quick) for prompt in settings}
        socket.stdin.close()
    elements = collections.defaultdict(dict)
    for prompt in settings:
        for count in ELEMENTS[options.quick]:
            print(f"{count} elements", file=sys.stderr)
            elements[prompt][count] = measure_elements(prompt, count, options.quick)

    parts = [f"Medians of {ROUNDS[options.quick]} rounds, with half of the way from the least to the "
             "largest.", ways_table(ways), "Elements of one page:"]
    for prompt in settings:
        parts += [f"With `{OPTION}`:"] * prompt + [elements_table(elements, prompt)]
    kept, all_met = report.aims_table(aims(ways))
    parts.append(kept if has_option else f"This build has no option `{OPTION}`.")
    names = {False: "default", True: OPTION}
    result = {"ways": {names[prompt]: value for prompt, value in ways.items()},
              "elements": {names[prompt]: value for prompt, value in elements.items()}}
    report.finish("browser", options, circumstances, result, "\n\n".join(parts))
    return 0 if all_met else 1


if __name__ == "__main__":
    sys.exit(main())

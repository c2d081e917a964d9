"""Measures the link, threads, timers and log beside raw sockets, libuv and libwebsockets, in one run
and on the same cores. Ends with status 1 when an aim is missed."""
import collections
import json
import os
import pathlib
import subprocess
import sys
import tempfile

import report

PEERS = report.BUILD / "bench/mpbp-peers"
MICRO = report.BUILD / "bench/mpbp-micro"
RUNS = {True: 5, False: 9}  # by --quick
KINDS = ["raw", "raw-4096", "libuv", "libwebsockets", "ours"]
DEADLINE = 120  # seconds that one measurement may take, on a busy machine

# Name, unit, role of the sending end, cores that both share, size, window, outstanding windows,
# windows with --quick; three times as many without it.
LINK = [
    ("round trip of 64 B, one core", "µs", "drive", 1, 64, 1, 1, 5000),
    ("round trip of 64 B, two cores", "µs", "drive", 2, 64, 1, 1, 2000),
    ("64 B, sent one by one", "frames/s", "drive", 2, 64, 1024, 2, 15),
    ("4 KiB, sent one by one", "frames/s", "drive", 2, 4096, 64, 2, 40),
    ("1 MiB, sent one by one", "MB/s", "drive", 2, 1 << 20, 1, 4, 40),
    ("64 B, received in large pieces", "frames/s", "batch", 2, 64, 1024, 2, 300),
    ("4 KiB, received in large pieces", "frames/s", "batch", 2, 4096, 64, 2, 200),
    ("1 MiB, received in large pieces", "MB/s", "batch", 2, 1 << 20, 1, 4, 100),
]
CPU = "processor: "
ONE_CORE, TWO_CORES, _, _, LARGE, SMALL_BATCH, *_ = [row[0] for row in LINK]

# The names of mpbp-micro's benchmarks, and what the time is for: on the clock for posts and wake-ups,
# of the processor for what one thread does alone.
MICRO_ROWS = [
    ("post", "ns a post"),
    ("wake-up", "µs"),
    ("timer set", "ns a timer"),
    ("timer run", "ns a timer"),
    ("log off", "ns a line"),
    ("log on", "ns a line"),
    ("redaction/64", "ns a byte"),
    ("redaction/1000000", "ns a byte"),
]


def pinned(core):
    return lambda: os.sched_setaffinity(0, {core})


def measure_link(row, kind, cores, folder, quick):
    """One run of one row with one kind: the value in the row's unit, and the ns of the processor that
    a frame takes at the receiving end."""
    _, unit, role, shared, size, window, outstanding, windows = row
    port_file = pathlib.Path(folder, "port")
    with subprocess.Popen([PEERS, "serve", kind, port_file], stdout=subprocess.PIPE, text=True,
                          preexec_fn=pinned(cores[0])) as server:
        try:
            if server.stdout.readline() != "listening\n":
                raise SystemExit(f"{kind} does not listen")
            load = [size, window, outstanding, windows if quick else 3 * windows]
            done = subprocess.run([PEERS, role, kind, port_file, *map(str, load)], check=True,
                                  stdout=subprocess.PIPE, text=True, timeout=DEADLINE,
                                  preexec_fn=pinned(cores[-1] if shared == 2 else cores[0]))
            said, _ = server.communicate(timeout=DEADLINE)
        finally:
            server.kill()
    result = json.loads(done.stdout)
    cpu = json.loads(said)["cpu_ns"]
    if unit == "µs":
        return result["p50_us"], cpu
    rate = result["frames"] / result["seconds"]
    return (rate * size / 1e6 if unit == "MB/s" else rate), cpu


def measure_micro(quick):
    """One run of everything: {row: {kind: value}}."""
    command = [MICRO, "--benchmark_format=json", f"--benchmark_min_time={0.05 if quick else 0.3}"]
    done = subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                          text=True, timeout=DEADLINE)
    values = collections.defaultdict(dict)
    for item in json.loads(done.stdout)["benchmarks"]:
        name, kind, *rest = item["name"].split("/")
        row = f"{name}/{rest[0]}" if name == "redaction" else name
        rate = item.get("items_per_second")
        nanoseconds = 1e9 / rate if rate else item["real_time"]
        values[row][kind] = nanoseconds / 1000 if name == "wake-up" else nanoseconds
    return values


def measure(quick, cores, folder):
    """{row: {kind: summary}}; within a run, each row has all kinds one after the other, and each run
    begins with another kind."""
    runs = collections.defaultdict(lambda: collections.defaultdict(list))
    for run in range(RUNS[quick]):
        print(f"run {run + 1} of {RUNS[quick]}", file=sys.stderr)
        first = run % len(KINDS)
        for row in LINK:
            for kind in KINDS[first:] + KINDS[:first]:
                value, cpu = measure_link(row, kind, cores, folder, quick)
                runs[row[0]][kind].append(value)
                runs[CPU + row[0]][kind].append(cpu)
        for name, by_kind in measure_micro(quick).items():
            for kind, value in by_kind.items():
                runs[name][kind].append(value)
    return {row: {kind: report.summary(values) for kind, values in by_kind.items()}
            for row, by_kind in runs.items()}


def rows(values, names, others):
    for name, unit in names:
        items = values[name]
        ours = items["ours"]["median"]
        ratios = [f"{ours / items[other]['median']:.2f}" if other in items else "–"
                  for other in others]
        yield [name, unit, *(report.cell(items.get(kind)) for kind in KINDS), *ratios]


def text(values):
    head = ["", "unit", "raw", "raw, 4096-byte reads", "libuv", "libwebsockets", "ours"]
    link = report.table(head + ["ours : raw", "ours : raw, 4096"],
                        rows(values, [row[:2] for row in LINK], ["raw", "raw-4096"]))
    cpu = report.table(head + ["ours : raw", "ours : raw, 4096"],
                       [[row[0].removeprefix(CPU), *row[1:]] for row in rows(
                           values, [(CPU + row[0], "ns a frame") for row in LINK],
                           ["raw", "raw-4096"])])
    micro = [row[:3] + row[4:] for row in rows(values, MICRO_ROWS, ["raw"])]
    return link, cpu, report.table(head[:3] + head[4:] + ["ours : raw"], micro)


def aims(values):
    units = {name: unit for name, unit, *_ in LINK + MICRO_ROWS}

    def best(item, row):
        return (max if units[row].endswith("/s") else min)(item["runs"])

    def ours(what, row, relation, aim, unit, divided_by=1):
        item = values[row]["ours"]
        return (what, item["median"] / divided_by, best(item, row) / divided_by, relation, aim, unit)

    def ratio(what, row, other, relation, aim):
        item, peer = values[row]["ours"], values[row][other]
        return (what, item["median"] / peer["median"], best(item, row) / best(peer, row), relation, aim,
                "")

    return [
        ratio("round trip, one core, to libwebsockets'", ONE_CORE, "libwebsockets", "<=", 1.0),
        ratio("round trip, two cores, to libwebsockets'", TWO_CORES, "libwebsockets", "<=", 1.0),
        ours("64 B in large pieces", SMALL_BATCH, ">=", 2, "M frames/s", 1e6),
        ratio("1 MiB, to raw with 4096-byte reads", LARGE, "raw-4096", ">=", 0.7),
        ours("a post", "post", "<=", 100, "ns"),
        ours("a timer, set", "timer set", "<=", 150, "ns"),
        ours("a timer, run", "timer run", "<=", 300, "ns"),
        ours("a log line below the level", "log off", "<=", 0.4, "ns"),
        ratio("a log line, to its write(2)", "log on", "raw", "<=", 1.15),
        ours("redaction of a written text", "redaction/1000000", "<=", 1, "ns a byte"),
    ]


def main():
    options = report.arguments(__doc__)
    circumstances = report.Circumstances("scripts/bench", options)
    cores = sorted(os.sched_getaffinity(0))
    if len(cores) < 2:
        raise SystemExit("this needs two cores")
    with tempfile.TemporaryDirectory(prefix="mpbp-bench-") as folder:
        values = measure(options.quick, cores, folder)
    link, cpu, micro = text(values)
    kept, all_met = report.aims_table(aims(values))
    report.finish("peers", options, circumstances, {"values": values, "aims": aims(values)},
                  f"Medians of {RUNS[options.quick]} runs, with half of the way from the least to the "
                  f"largest.\n\n{link}\n\nThe processor at the receiving end, which other programs "
                  f"disturb less:\n\n{cpu}\n\n{micro}\n\n{kept}")
    return 0 if all_met else 1


sys.exit(main())

"""Measures how the link does with many pages, from 1 to 400, and with large texts, from 1 kB to
100 MB, and draws a curve of each: docs/pages.svg and docs/texts.svg with --write, into the build
folder otherwise. Ends with status 1 when an aim is missed."""
import collections
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

import report

TEXTS = report.BUILD / "bench/mpbp-texts"
MODULE = report.BUILD / "libmpbppapiplugin.so"
OPTION = "prompt_delivery"
SIZES = [10**exponent for exponent in range(3, 9)]  # bytes
PAGES = {True: [1, 20, 100, 400], False: [1, 10, 50, 100, 200, 400]}  # by --quick
ROUNDS = {True: 1, False: 5}
DEADLINE = 600  # seconds
# Colours that can be told apart, on white.
COLOURS = ["#0072b2", "#d55e00", "#009e73", "#cc79a7"]


def measure_texts(prompt, rounds):
    """{size: {what: median}}"""
    runs = collections.defaultdict(lambda: collections.defaultdict(list))
    for _ in range(rounds):
        profile = tempfile.mkdtemp(prefix="mpbp-texts-")
        folder = pathlib.Path(profile, "murmel-murmelparlplugin")
        folder.mkdir(mode=0o700)
        (folder / "options").write_text(
            f"install_dir={report.BUILD}/engine\npluginppapi_log_level=LS_WARNING\n"
            f"{OPTION}={prompt:d}\n", encoding="utf-8")
        # In a namespace of its own, the engine ends with it.
        command = [report.TOP / "scripts/own-pids", TEXTS, MODULE, *map(str, SIZES)]
        try:
            done = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True,
                                  stderr=subprocess.DEVNULL, timeout=DEADLINE,
                                  env=dict(os.environ, XDG_CONFIG_HOME=profile))
        finally:
            shutil.rmtree(profile, ignore_errors=True)
        for line in done.stdout.splitlines():
            result = json.loads(line)
            for what, value in result.items():
                if value is not None:
                    runs[result["size"]][what].append(value)
    return {size: {what: report.summary(values)["median"] for what, values in by_what.items()}
            for size, by_what in runs.items()}


def measure_pages(counts):
    """{pages: (seconds until all are ready, the same after their engine was killed)}"""
    command = [report.TOP / "scripts/own-pids", report.TOP / "scripts/many-pages",
               *(f"1x{count}" for count in counts)]
    done = subprocess.run(command, stdout=subprocess.PIPE, text=True, timeout=DEADLINE)
    times = {}
    for line in done.stdout.splitlines()[1:]:
        case, ready, _, again, *_ = line.split()
        times[int(case[2:])] = (float(ready), float(again))
    if sorted(times) != sorted(counts):
        raise SystemExit("many-pages failed")
    return times


def draw(path, labels, axes, lines):
    """One SVG; `lines`: (name, [(x, y)]) each."""
    blocks = "".join(
        f"$line{i} << END\n" + "".join(f"{x} {y}\n" for x, y in points) + "END\n"
        for i, (_, points) in enumerate(lines))
    plots = ", ".join(f"$line{i} with linespoints pt 7 ps 0.5 lw 2 lc rgb '{COLOURS[i]}' title '{name}'"
                      for i, (name, _) in enumerate(lines))
    script = f"""set terminal svg size 720,440 font 'sans-serif,13' background 'white'
set output '{path}'
set encoding utf8
{blocks}set xlabel '{labels[0]}'
set ylabel '{labels[1]}'
{axes}
set key below left vertical Left reverse
set grid lc rgb '#bbbbbb'
plot {plots}
"""
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def draw_texts(folder, texts):
    lines = []
    for prompt, by_size in texts.items():
        suffix = ", with prompt delivery" if prompt else ""
        lines.append(("there and back by the clock" + suffix,
                      [(size, it["echo_ms"]) for size, it in by_size.items()]))
    by_size = texts[max(texts)]
    for name, what in (("the processor, for a send", "send_us"),
                       ("the processor, for receiving", "receive_us")):
        lines.append((name, [(size, it[what] / 1000) for size, it in by_size.items() if what in it]))
    axes = """set logscale xy
set xrange [1e3:1e8]
set xtics ('1 kB' 1e3, '10 kB' 1e4, '100 kB' 1e5, '1 MB' 1e6, '10 MB' 1e7, '100 MB' 1e8)
set ytics format '%g'"""
    draw(folder / "texts.svg", ("a text", "ms"), axes, lines)


def draw_pages(folder, pages):
    lines = [(name, [(count, times[i]) for count, times in pages.items()])
             for i, name in enumerate(("opened at once, until all are ready",
                                       "from the end of their engine, until all are ready again"))]
    ticks = ", ".join(map(str, pages))
    axes = f"set logscale x\nset xrange [1:{max(pages)}]\nset yrange [0:]\nset xtics ({ticks})"
    draw(folder / "pages.svg", ("pages of one browser process", "seconds"), axes, lines)


def texts_table(by_size):
    def each_byte(it, what):
        return report.number(it[what] * 1000 / it["size"]) if what in it else "–"

    rows = [[f"{size:,}", report.number(it["send_us"]),
             report.number(it["receive_us"]) if "receive_us" in it else "–", each_byte(it, "send_us"),
             each_byte(it, "receive_us"), report.number(it["echo_ms"]), f"{it['growth']:.1f}"]
            for size, it in by_size.items()]
    return report.table(["bytes", "a send, µs", "a receipt, µs", "send, ns a byte",
                         "receipt, ns a byte", "there and back, ms", "most memory, times the size"],
                        rows)


def aims(texts):
    by_size = texts[False]
    small, large = by_size[SIZES[0]], [by_size[size] for size in SIZES if size >= 10**6]
    growth = max(it["growth"] for it in large)
    send = max(it["send_us"] * 1000 / it["size"] for it in large)
    receive = max(it["receive_us"] * 1000 / it["size"] for it in large if "receive_us" in it)
    echoed = texts[max(texts)][SIZES[-1]]["echo_ms"] / 1000
    return [
        ("the processor for a send of 1 kB", small["send_us"], None, "<=", 6, "µs"),
        ("for receiving 1 kB", small["receive_us"], None, "<=", 6, "µs"),
        ("for a send of 1 MB and more", send, None, "<=", 3, "ns a byte"),
        ("for receiving that", receive, None, "<=", 5, "ns a byte"),
        ("the memory for that", growth, None, "<=", 2.5, "times the size"),
        ("100 MB there and back", echoed, None, "<=", 2, "s"),
    ]


def main():
    options = report.arguments(__doc__)
    circumstances = report.Circumstances("scripts/bench --curves", options)
    has_option = OPTION.encode() in MODULE.read_bytes()
    texts = {prompt: measure_texts(prompt, ROUNDS[options.quick])
             for prompt in ([False, True] if has_option else [False])}
    pages = measure_pages(PAGES[options.quick])
    folder = report.TOP / "docs" if options.write else report.BUILD
    draw_texts(folder, texts)
    draw_pages(folder, pages)

    parts = ["Texts between the page host and the stand-in engine, at `LS_WARNING`, with standard "
             f"error thrown away; medians of {ROUNDS[options.quick]}. A receipt is one of many in a "
             "row; the stand-in engine sends 64 MiB at most.",
             "![Time over the size of a text](texts.svg)"]
    for prompt, by_size in texts.items():
        parts += [f"With `{OPTION}`:"] * prompt + [texts_table(by_size)]
    if not has_option:
        parts.append(f"This build has no option `{OPTION}`.")
    kept, all_met = report.aims_table(aims(texts))
    rows = [[count, *map(report.number, times)] for count, times in pages.items()]
    parts += [kept, "Pages of one process, their engine not running:",
              "![Time over the number of pages](pages.svg)",
              report.table(["pages", "ready, s", "ready again after a kill, s"], rows)]
    report.finish("curves", options, circumstances, {"texts": texts, "pages": pages},
                  "\n\n".join(parts))
    return 0 if all_met else 1


sys.exit(main())

"""What the measuring scripts share: where things are, the flags, medians, tables, and the sections of
docs/performance.md that they write."""
import argparse
import datetime
import json
import os
import pathlib
import platform
import re
import statistics

TOP = pathlib.Path(__file__).resolve().parent.parent
BUILD = pathlib.Path(os.environ.get("MPBP_BUILD_DIR", TOP / "build"))
PAGE = TOP / "docs/performance.md"


def arguments(description):
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--quick", action="store_true", help="less of everything, below two minutes")
    parser.add_argument("--json", action="store_true", help="print JSON instead of tables")
    parser.add_argument("--write", action="store_true",
                        help="put the tables into docs/performance.md too")
    return parser.parse_args()


class Circumstances:
    """The machine, the time, and how busy it was with other things; made before measuring begins."""

    def __init__(self, command, options):
        self.command = command + (" --quick" if options.quick else "")
        self.date = datetime.datetime.now(datetime.timezone.utc)
        self.load_before = os.getloadavg()[0]

    def as_dict(self):
        cpus = re.findall(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text("utf-8"),
                          re.M)
        return {"command": self.command, "date": self.date.isoformat(timespec="minutes"),
                "cpu": cpus[0] if cpus else platform.machine(),
                "cores": len(os.sched_getaffinity(0)), "kernel": platform.release(),
                "system": platform.freedesktop_os_release()["PRETTY_NAME"],
                "load_before": self.load_before, "load_after": os.getloadavg()[0]}

    def line(self):
        it = self.as_dict()
        return (f"`{it['command']}` on {self.date:%Y-%m-%d at %H:%M} UTC: {it['cpu']}, "
                f"{it['cores']} cores, {it['system']}, Linux {it['kernel']}; load average "
                f"{it['load_before']:.1f} before and {it['load_after']:.1f} after.")


def summary(values):
    """The median, and half of the way from the least to the largest value as a part of it."""
    middle = statistics.median(values)
    return {"median": middle, "spread": (max(values) - min(values)) / 2 / middle if middle else 0,
            "runs": values}


def number(value):
    """Three digits that count, thousands apart."""
    if value == 0:
        return "0"
    digits = max(0, 2 - len(str(int(abs(value)))) + (abs(value) >= 1))
    if abs(value) < 0.1:
        digits = 3
    return f"{value:,.{digits}f}"


def precise(value):
    """The same for what is compared with an aim: two decimals for small numbers."""
    return f"{value:.2f}" if 0.1 <= abs(value) < 10 else number(value)


def cell(item):
    return f"{number(item['median'])} ±{100 * item['spread']:.0f} %" if item else "–"


def table(head, rows):
    """A Markdown table, also good to read as it is."""
    lines = [[str(word) for word in row] for row in [head, *rows]]
    widths = [max(len(line[i]) for line in lines) for i in range(len(head))]
    padded = ["| " + " | ".join(word.ljust(width) for word, width in zip(line, widths)) + " |"
              for line in lines]
    padded.insert(1, "|" + "|".join("-" * (width + 2) for width in widths) + "|")
    return "\n".join(padded)


def aims_table(aims):
    """`aims`: (what, median, best run, "<=" or ">=", aim, unit) each, without a best run where there is
    no such thing (None); the table, and whether the medians meet all of them."""
    rows = []
    all_met = True
    for what, middle, best, relation, aim, unit in aims:
        met = middle <= aim if relation == "<=" else middle >= aim
        all_met = all_met and met
        words = "at most" if relation == "<=" else "at least"
        shown = [precise(value) if value is not None else "–" for value in (middle, best)]
        rows.append([what, unit, *shown, f"{words} {aim:g}", "met" if met else "**missed**"])
    return table(["aim", "unit", "median", "best run", "is to be", ""], rows), all_met


def write_section(name, text):
    """Replaces what stands between the markers of that name in docs/performance.md."""
    page = PAGE.read_text("utf-8")
    begin, end = f"<!-- begin {name} -->", f"<!-- end {name} -->"
    before, found, rest = page.partition(begin)
    _, closed, after = rest.partition(end)
    if not found or not closed:
        raise SystemExit(f"docs/performance.md has no markers for {name}")
    PAGE.write_text(f"{before}{begin}\n{text}\n{end}{after}", "utf-8")


def finish(name, options, circumstances, result, text):
    """Prints, as the flags say, and writes the section."""
    text = f"{circumstances.line()}\n\n{text}"
    if options.json:
        print(json.dumps({"circumstances": circumstances.as_dict(), **result}, indent=1))
    else:
        print(text)
    if options.write:
        write_section(name, text)

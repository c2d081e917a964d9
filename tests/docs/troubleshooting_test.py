"""docs/troubleshooting.md names every error line and every code of the source, and no others."""
import pathlib
import re
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
PAGE = TREE / "docs" / "troubleshooting.md"

LITERAL = r'"(?:[^"\\]|\\.)*"'
STATEMENT = re.compile(r"\bLOG(?:_ERR|_ERR_EX)?\(LS_ERROR\b[^)]*\)((?:" + LITERAL + r'|[^;"])*);')
CODE = "[a-z]+(?:-[a-z]+)*"

# Functions that log texts of their callers: what they log, and their calls. A call's groups are what
# each "…" stands for, and a last one that is filled when a value is appended.
WRAPPERS = {
    "…: …": re.compile(rf'\bThrow\("(\w+)", ({LITERAL})( \+)?'),
    "Call: …": re.compile(rf"\b(?:refuse|Refuse)\(({LITERAL})( \+)?"),
    "The browser's side is broken: …": re.compile(rf"\bComplain\(({LITERAL})( \+)?"),
}


def unquote(literals):
    texts = re.findall(r'"((?:[^"\\]|\\.)*)"', literals)
    return re.sub(r"\\(.)", r"\1", "".join(texts))


def line_of(streamed):
    """The line that a log statement writes, with … for each value."""
    literals = re.findall(LITERAL, streamed)
    bare = re.sub(LITERAL, '"', streamed)
    # What stands in parentheses is a value, also when it is made of texts.
    count = 1
    while count:
        bare, count = re.subn(r"\([^()]*\)", lambda m: "x" + "\1" * len(re.findall('["\1]', m[0])),
                              bare)
    line = ""
    for piece in bare.split("<<"):
        quotes = re.findall('["\1]', piece)
        texts, literals = literals[:len(quotes)], literals[len(quotes):]
        if re.fullmatch(r'[\s"]*', piece):
            line += unquote("".join(texts))
        elif piece.strip() != "this" and not line.endswith("…"):
            line += "…"
    return line.removeprefix(": ")


def read_sources():
    paths = [path for folder in ("src", "connector") for path in sorted((TREE / folder).rglob("*"))
             if path.suffix in (".cc", ".h")]
    return [re.sub(r"^\s*//.*$", "", path.read_text(encoding="utf-8"), flags=re.M)
            for path in paths]


def error_lines(sources):
    lines = set()
    for text in sources:
        lines |= {line_of(streamed) for streamed in STATEMENT.findall(text)}
        for wrapper, pattern in WRAPPERS.items():
            for *values, literal, more in pattern.findall(text):
                line = wrapper
                for value in [*values, unquote(literal) + ("\0" if more else "")]:
                    line = line.replace("…", value, 1)
                lines.add(line.replace("\0", "…"))
    return lines - set(WRAPPERS)


def browser_codes():
    codes = set()
    for path in (TREE / "extension").glob("*.js"):
        text = path.read_text(encoding="utf-8")
        for pattern in (r"\b(?:closeAll|_tellError|failure)\(\s*'(%s)'", r"\bclosePort\(\w+, '(%s)'",
                        r"\breturn \['(%s)',"):
            codes |= set(re.findall(pattern % CODE, text))
    for path in (TREE / "connector").glob("*.cc"):
        text = path.read_text(encoding="utf-8")
        for pattern in (r'\bWriteFailure\(\w+, \w+,\s*"(%s)"', r'\bWriteFailure\("\w+", \w+, "(%s)"',
                        r'\bkProtocolError\[\] = "(%s)"', r'\bClose\(\w+, "(%s)"'):
            codes |= set(re.findall(pattern % CODE, text))
    return codes


def library_codes():
    text = (TREE / "examples" / "console" / "murmelparl.js").read_text(encoding="utf-8")
    ends = re.search(r"\bENDS = [^;]*;", text)[0]
    return set(re.findall(rf"\bLinkError\(\s*'({CODE})'", text)) | set(
        re.findall(rf": '({CODE})'", ends))


def tables_of(text):
    """Each table as rows, the first of them its head, of cells, of what they hold as code."""
    for block in re.findall(r"(?:^\|.*\n)+", text, flags=re.M):
        rows = [re.split(r"(?<!\\)\|", line)[1:-1] for line in block.splitlines()]
        if any(len(row) != len(rows[0]) for row in rows):
            raise AssertionError(f"a row of another length than its head: {block}")
        yield [[cell.strip() for cell in rows[0]]] + [
            [re.findall("`([^`]*)`", cell.replace(r"\|", "|")) for cell in row] for row in rows[2:]]


class TroubleshootingTest(unittest.TestCase):
    def setUp(self):
        self.sources = read_sources()
        text = PAGE.read_text(encoding="utf-8")
        self.before, _, rest = text.partition("\n## Every error line\n")
        self.every_error_line = rest.partition("\n## ")[0]

    def test_every_error_line_of_the_source_and_no_other_is_there(self):
        statements = sum(len(re.findall(r"\bLOG\w*\(\s*LS_ERROR\b", text)) for text in self.sources)
        understood = sum(len(STATEMENT.findall(text)) for text in self.sources)
        self.assertEqual(statements, understood)
        self.assertGreater(statements, 100)
        rows = [row for table in tables_of(self.every_error_line) for row in table[1:]]
        listed = [line for row in rows for line in row[0]]
        self.assertEqual(len(listed), len(set(listed)), "a line stands there twice")
        source = error_lines(self.sources)
        self.assertEqual(set(), source - set(listed), "lines that the page lacks")
        self.assertEqual(set(), set(listed) - source, "lines that nothing logs")

    def test_every_code_and_no_other_is_there(self):
        tables = [table for table in tables_of(self.before) if table[0][0] == "code"]
        listed = [[row[0][0] for row in table[1:]] for table in tables]
        self.assertEqual([sorted(browser_codes()), sorted(library_codes())],
                         [sorted(codes) for codes in listed])

    def test_the_other_lines_are_in_the_source_too(self):
        literals = {unquote(literals) for text in self.sources
                    for literals in re.findall(rf"{LITERAL}(?:\s*{LITERAL})*", text)}
        errors = error_lines(self.sources)
        seen = 0
        for head, *rows in tables_of(self.before):
            for name in ("line of the log", "log", "line"):
                at = head.index(name) if name in head else len(head)
                for line in (line for row in rows for cell in row[at:at + 1] for line in cell):
                    seen += 1
                    parts = [part for part in line.split("…") if part.strip(' ."')]
                    self.assertTrue(
                        line in errors or all(any(part in literal for literal in literals)
                                              for part in parts), line)
        self.assertGreater(seen, 40)


if __name__ == "__main__":
    unittest.main()

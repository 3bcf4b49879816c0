"""Each line of docs/known-behaviour.md that waives a rule is one entry of a list in the code, and the other way round.

Each line that waives nothing names the test that shows it.
"""
import re

from common import code_files

COMPLAINTS = "## Complaints of the hardware after a fault"
REMAINS = "## What a fault leaves behind"
BEHAVIOUR = "## Behaviour without a rule"
TEST = re.compile(r"^(?:TEST|TEST_F|TEST_P|WORLD_TEST)\s*\(\s*(\w+),\s*(\w+)\)", re.M)
RULE = re.compile(r'^\s*X\((\w+), "([^"]+)",', re.M)


def _section(text, heading):
    return text.partition(heading + "\n")[2].partition("\n## ")[0]


def _names(root, *files):
    return dict(pair for file in files for pair in RULE.findall((root / file).read_text()))


def _complaints(code, names):
    """The entries as lines of the document: rule, where, how often."""
    for rule, space, dword, most in re.findall(r"^\s*\{(\w+), (\w+), (\w+), (\d+),\n", code, re.M):
        where = "anywhere" if space == "kAny" else space.lower() + ("" if dword == "kAny" else f" dword {dword}")
        yield names.get(rule, rule), where, most


def _remains(code, names):
    for rule, most in re.findall(r"\{FindingRule::(\w+), (\d+),\n", code):
        yield names.get(rule, rule), most


def _differences(entries, lines):
    for entry in sorted(entries - lines):
        yield f"docs/known-behaviour.md: no line for the waiver {' | '.join(map(str, entry))}"
    for line in sorted(lines - entries):
        yield f"no waiver in the code for the line {' | '.join(map(str, line))}"


def _behaviour(root, text):
    tests = {f"{group}.{name}" for path in code_files(root, "tests") for group, name in TEST.findall(path.read_text())}
    behaviour = re.findall(r"^\| .*\|$", text.partition(BEHAVIOUR)[2], re.M)[1:]
    if not behaviour:
        yield f"docs/known-behaviour.md: nothing under '{BEHAVIOUR}'"
    for line in behaviour:
        named = re.findall(r"`(\w+\.\w+)`", line.rsplit("|", 2)[1])
        for missing in [name for name in named if name not in tests] or ([] if named else ["none"]):
            yield f"docs/known-behaviour.md: no test {missing} shows '{line[2:60]}'"


def findings(root):
    code = (root / "lab/machine/waivers.cpp").read_text()
    remains = (root / "lab/oracle/remains.cpp").read_text()
    text = (root / "docs/known-behaviour.md").read_text()
    entries = set(re.findall(r"platform::Rule::(\w+),\s*\"([^\"]*)\",\s*([0-9]+)", code))
    lines = set(re.findall(r"^\| `([A-Z]\w+)` \| `([^|`]*)` \| ([0-9]+) ", text, re.M))
    yield from _differences(entries, lines)
    if len(re.findall(r"platform::Rule::\w+,", code)) != len(entries):
        yield "lab/machine/waivers.cpp: an entry that this check cannot read"
    yield from _differences(
        set(_complaints(code, _names(root, "sim/host/complaints.h"))),
        set(re.findall(r"^\| `([\w-]+)` \| ([^|]+) \| (\d+) \|", _section(text, COMPLAINTS), re.M)))
    yield from _differences(
        set(_remains(remains, _names(root, "sim/fabric/fabric_books.h", "lab/oracle/finding.h"))),
        set(re.findall(r"^\| `([\w-]+)` \| (\d+) \|", _section(text, REMAINS), re.M)))
    yield from _behaviour(root, text)


_CODE = ('waivers.push_back({platform::Rule::StallTooLong, "KeStall", 3100, "why"});\n'
         '      {ReadOnly, Router, 0, 7,\n       "why"},\n      {Dangling, kAny, kAny, 2,\n       "why"},\n')
_LEFT = '      {FindingRule::Lost, 3,\n       "why"},\n'
_LINE = "| `StallTooLong` | `KeStall` | 3100 us | why |\n"
_COMPLAINTS = f"{COMPLAINTS}\n\n| `read-only` | router dword 0 | 7 | why |\n| `dangling` | anywhere | 2 | why |\n\n"
_REMAINS = f"{REMAINS}\n\n| `lost` | 3 | why |\n\n"
_SHOWN = BEHAVIOUR + "\n\n| what | why | shown by |\n|---|---|---|\n| odd | so | `A.B` |\n"
_TEXT = _LINE + _COMPLAINTS + _REMAINS + _SHOWN
CLEAN = {"lab/machine/waivers.cpp": _CODE, "lab/oracle/remains.cpp": _LEFT, "docs/known-behaviour.md": _TEXT, "tests/a.cpp": "WORLD_TEST(A, B) {\n",
         "sim/host/complaints.h": '  X(ReadOnly, "read-only", "m") \\\n  X(Dangling, "dangling", "m")\n',
         "sim/fabric/fabric_books.h": '  X(Lost, "lost", "m")\n', "lab/oracle/finding.h": ""}


def _text(old, new):
    return CLEAN | {"docs/known-behaviour.md": _TEXT.replace(old, new)}


def _code(old, new):
    return CLEAN | {"lab/machine/waivers.cpp": _CODE.replace(old, new)}


PLANTED = {
    "a complaint at another register": _text("router dword 0", "router dword 3"),
    "a complaint that may come more often": _code("{ReadOnly, Router, 0, 7,", "{ReadOnly, Router, 0, 8,"),
    "a complaint without its line": _text("| `dangling` | anywhere | 2 | why |\n", ""),
    "a remain without its line": _text("| `lost` | 3 | why |\n", ""),
    "a remain whose bound moved": CLEAN | {"lab/oracle/remains.cpp": _LEFT.replace("3", "4")},
    "a waiver without its line": _text(_LINE, ""),
    "a line without its waiver": _code('platform::Rule::StallTooLong, "KeStall", 3100', ""),
    "a behaviour whose test is gone": CLEAN | {"tests/a.cpp": "WORLD_TEST(A, C) {\n"},
    "a behaviour that names no test": _text("`A.B`", "`tests/a`"),
    "a list of behaviour by another name": _text(BEHAVIOUR, BEHAVIOUR.replace("##", "# The")),
    "a bound that moved": _code("3100", "9000"),
    "a waiver of another call": _code('"KeStall"', '"KeWait"'),
}

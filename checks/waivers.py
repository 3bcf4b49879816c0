"""Each line of docs/known-behaviour.md that waives a rule is one entry of lab/machine/waivers.cpp, and the other way round.

Each line that waives nothing names the test that shows it.
"""
import re

from common import code_files

BEHAVIOUR = "## Behaviour without a rule"
TEST = re.compile(r"^(?:TEST|TEST_F|TEST_P|WORLD_TEST)\s*\(\s*(\w+),\s*(\w+)\)", re.M)


def findings(root):
    code = (root / "lab/machine/waivers.cpp").read_text()
    text = (root / "docs/known-behaviour.md").read_text()
    entries = {(rule, int(bound)) for rule, bound in re.findall(r"platform::Rule::(\w+),\s*\"[^\"]*\",\s*([0-9]+)", code)}
    lines = {(rule, int(bound)) for rule, bound in re.findall(r"^\| `(\w+)` \|[^|]*\| ([0-9]+) ", text, re.M)}
    for rule, bound in sorted(entries - lines):
        yield f"docs/known-behaviour.md: no line for the waiver of {rule} up to {bound}"
    for rule, bound in sorted(lines - entries):
        yield f"lab/machine/waivers.cpp: no waiver for the line {rule} up to {bound}"
    waived = set(re.findall(r'^\s*\{"([^"]+)",\n', code, re.M))
    listed = set(re.findall(r"^\| `([^`]* [^`]*)` \|", text, re.M))
    for complaint in sorted(waived ^ listed):
        yield f"the complaint '{complaint}' is not in both lab/machine/waivers.cpp and docs/known-behaviour.md"
    if len(re.findall(r"platform::Rule::\w+,", code)) != len(entries):
        yield "lab/machine/waivers.cpp: an entry that this check cannot read"
    tests = {f"{group}.{name}" for path in code_files(root, "tests") for group, name in TEST.findall(path.read_text())}
    behaviour = re.findall(r"^\| .*\|$", text.partition(BEHAVIOUR)[2], re.M)[1:]
    if not behaviour:
        yield f"docs/known-behaviour.md: nothing under '{BEHAVIOUR}'"
    for line in behaviour:
        named = re.findall(r"`(\w+\.\w+)`", line.rsplit("|", 2)[1])
        for missing in [name for name in named if name not in tests] or ([] if named else ["none"]):
            yield f"docs/known-behaviour.md: no test {missing} shows '{line[2:60]}'"


_CODE = 'waivers.push_back({platform::Rule::StallTooLong, "KeStall", 3100, "why"});\n'
_LINE = "| `StallTooLong` | power-on sequence | 3100 us | why |\n"
_SHOWN = BEHAVIOUR + "\n\n| what | why | shown by |\n|---|---|---|\n| odd | so | `A.B` |\n"
CLEAN = {"lab/machine/waivers.cpp": _CODE, "docs/known-behaviour.md": _LINE + _SHOWN, "tests/a.cpp": "WORLD_TEST(A, B) {\n"}
PLANTED = {
    "a waived complaint without its line": CLEAN | {"lab/machine/waivers.cpp": _CODE + '      {"dword 0 changed",\n       "why"},\n'},
    "a waiver without its line": CLEAN | {"docs/known-behaviour.md": _SHOWN},
    "a line without its waiver": CLEAN | {"lab/machine/waivers.cpp": ""},
    "a behaviour whose test is gone": CLEAN | {"tests/a.cpp": "WORLD_TEST(A, C) {\n"},
    "a behaviour that names no test": CLEAN | {"docs/known-behaviour.md": _LINE + _SHOWN.replace("`A.B`", "`tests/a`")},
    "a list of behaviour by another name": CLEAN | {"docs/known-behaviour.md": _LINE + _SHOWN.replace("##", "# The")},
    "a bound that moved": CLEAN | {"lab/machine/waivers.cpp": _CODE.replace("3100", "9000")},
}

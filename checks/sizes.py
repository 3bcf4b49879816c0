"""A function fits a screen, a file is one idea: no function above 70 lines, no file above 600."""
import json

from common import code_files, run

FUNCTION_LINES = 70
FILE_LINES = 600


def findings(root):
    files = list(code_files(root))
    for path in files:
        lines = len(path.read_text().splitlines())
        if lines > FILE_LINES:
            yield f"{path}: {lines} lines"
    if not files:
        return
    tags = run("ctags", "--output-format=json", "--languages=C++", "--langmap=C++:.cpp.h", "--kinds-C++=f", "--fields=+ne", "-o", "-",
               *map(str, files))
    for line in tags.splitlines():
        tag = json.loads(line)
        length = tag.get("end", tag["line"]) - tag["line"] + 1
        if length > FUNCTION_LINES:
            yield f"{tag['path']}:{tag['line']}: {tag['name']} has {length} lines"


def _function(lines):
    return "int F(int a) {\n" + "  a++;\n" * (lines - 3) + "  return a;\n}\n"


CLEAN = {"src/cm/bus.cpp": _function(70)}
PLANTED = {
    "a function of 71 lines": {"src/cm/bus.cpp": _function(71)},
    "a method of 71 lines": {"lab/a.h": "struct A {\n" + _function(71) + "};\n"},
    "a test of 71 lines": {"tests/a.cpp": _function(71).replace("int F(int a)", "TEST(Group, Case)")},
    "a file of 601 lines": {"sim/a.cpp": "//\n" * 601},
}

"""A branch or loop whose body stands on lines of its own has braces."""
import re

from common import code_files

HEAD = re.compile(r"^\s*(?:(?:\} else |else )?(?:if|for|while)(?: constexpr)? \(|(?:\} )?else$)")


def _code(line):
    """The line without its comment and without what stands in its strings."""
    line = re.sub(r'"(?:\\.|[^"\\])*"', '""', line)
    line = re.sub(r"'(?:\\.|[^'\\])*'", "''", line)
    return re.sub(r"//.*", "", line).rstrip()


def _end_of_head(lines, first):
    depth = 0
    for last in range(first, len(lines)):
        code = _code(lines[last])
        depth += code.count("(") - code.count(")")
        if depth <= 0:
            return last
    return len(lines) - 1


def unbraced(lines):
    """Line numbers, from 0: (first, last) of each head whose body begins on the next line without a brace."""
    for first, line in enumerate(lines):
        if not HEAD.match(_code(line)):
            continue
        last = _end_of_head(lines, first)
        if _code(lines[last])[-1:] not in ("{", ";", "}", "\\", ""):
            yield first, last


def findings(root):
    for path in code_files(root):
        for first, _ in unbraced(path.read_text().splitlines()):
            yield f"{path.relative_to(root)}:{first + 1}: a body on lines of its own without braces"


CLEAN = {"src/cm/bus.cpp": "void F(int a) {\n  if (a) return;\n  for (;;) {\n    G(\"if (\");\n  }\n  do {\n  } while (a);\n}\n"}
PLANTED = {
    "an if": {"src/cm/bus.cpp": "  if (a)\n    return;\n"},
    "a loop over two lines": {"src/cm/bus.cpp": "  for (int i = 0;\n       i < a; ++i)\n    F(i);\n"},
    "an else": {"src/cm/bus.cpp": "  if (a) {\n    F();\n  } else\n    G();\n"},
    "an else if": {"src/cm/bus.cpp": "  if (a) {\n    F();\n  } else if (b)\n    G();\n"},
}

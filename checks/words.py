"""Words that may not stand in the project: it describes itself, in its own terms."""
import re

from common import run

# Written so that this file does not contain them.
WORDS = re.compile(r"specificatio[n]|\bspec\.m[d]\b|\bthe spe[c]\b|\b[P]arts? [0-9]+\.[0-9]+|\brulings?\.m[d]|\bR[1-7][0-9]\b|"
                   r"\bissue #?[0-9]|/wor[k]/|/tm[p]/[a-z]", re.IGNORECASE)
CASE_WORDS = re.compile(r"[(\s][RC][1-7]?[0-9][):,.;]")  # a numbered decision, a letter and digits


def tracked(root):
    if (root / ".git").exists():
        return [root / name for name in run("git", "ls-files", "-z", cwd=root).split("\0") if name]
    return [path for path in sorted(root.rglob("*")) if path.is_file()]


def findings(root):
    for path in tracked(root):
        name = str(path.relative_to(root))
        if WORDS.search(name):
            yield f"{name}: the file's name"
        if not path.is_file():
            continue
        try:
            text = path.read_text()
        except UnicodeDecodeError:
            continue
        code = path.suffix in (".cpp", ".h", ".md")
        for number, line in enumerate(text.splitlines(), 1):
            match = WORDS.search(line) or (code and CASE_WORDS.search(line))
            if match:
                yield f"{name}:{number}: '{match.group(0).strip()}'"
    if (root / ".git").exists():
        for line in run("git", "log", "--format=%h %s %b", cwd=root).splitlines():
            match = WORDS.search(line)
            if match:
                yield f"commit message: '{match.group(0)}' in '{line[:80]}'"


CLEAN = {"src/cm/bus.cpp": "// A router ignores a spare acknowledgement; H1 to D1, part of the walk.\n"}
PLANTED = {
    "the document by its kind": {"README.md": "As the speci" + "fication says.\n"},
    "one of its chapters": {"src/a.cpp": "// See Pa" + "rt 1.2.\n"},
    "a numbered decision": {"src/a.cpp": "// Literal (C" + "16).\n"},
    "a path of one machine": {"docs/a.md": "Run it in /wo" + "rk/here.\n"},
}

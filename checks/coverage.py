#!/usr/bin/env python3
"""The tests reach enough of src/, and docs/coverage.md names each function that they do not reach whole, and no other.

Usage: coverage.py ROOT REPORT, with the JSON report of gcovr. The last line is 'N passed, N failed'.
"""
import json
import re
import sys
from collections import defaultdict
from pathlib import Path

SELF_TEST_ONLY = True
DOCUMENT = "docs/coverage.md"
LINES_ABOVE, BRANCHES_ABOVE = 95.0, 85.0
ROW = re.compile(r"^\| `(src/[^`]+)` \| ([^|]+) \|", re.M)


def plain_name(signature):
    """The function's own name: no namespace, return type, template arguments or parameters; a lambda is its function."""
    text = signature.replace("(anonymous namespace)::", "")
    while (shorter := re.sub(r"<[^<>]*>", "", text)) != text:
        text = shorter
    return re.split(r"\(", text, maxsplit=1)[0].split()[-1].split("::")[-1]


def measure(report):
    """[(lines, reached), (branches, reached)], and the names of functions not reached whole, by file."""
    lines, branches, missed = [0, 0], [0, 0], defaultdict(set)
    for entry in report["files"]:
        functions = sorted((function["lineno"], plain_name(function["name"])) for function in entry["functions"])
        for line in entry["lines"]:
            if line["gcovr/noncode"]:
                continue
            lines[0] += 1
            lines[1] += line["count"] > 0
            counted = [branch for branch in line["branches"] if not branch["throw"]]
            branches[0] += len(counted)
            branches[1] += sum(branch["count"] > 0 for branch in counted)
            if line["count"] == 0:
                above = [name for start, name in functions if start <= line["line_number"]]
                missed[entry["file"]].add(above[-1] if above else "?")
    return lines, branches, missed


def percent(pair):
    return 100.0 * pair[1] / pair[0] if pair[0] else 0.0


def named(document):
    rows = defaultdict(set)
    for file, functions in ROW.findall(document):
        rows[file] |= set(re.findall(r"`(\w+)`", functions))
    return rows


def judge(report, document):
    """What does not hold, and how much was asked."""
    lines, branches, missed = measure(report)
    bad = []
    for what, pair, limit in (("lines", lines, LINES_ABOVE), ("branches", branches, BRANCHES_ABOVE)):
        if percent(pair) <= limit:
            bad.append(f"{percent(pair):.1f} % of {what} ({pair[1]} of {pair[0]}); the limit is {limit} %")
    rows = named(document)
    for file in sorted(missed.keys() | rows.keys()):
        bad += [f"{file}: {name} is not reached whole, and {DOCUMENT} gives no reason"
                for name in sorted(missed[file] - rows[file])]
        bad += [f"{file}: {name} is reached whole, or gone; {DOCUMENT} says otherwise"
                for name in sorted(rows[file] - missed[file])]
    return bad, 2 + sum(len(missed[file] | rows[file]) for file in missed.keys() | rows.keys())


def findings(root):
    return judge(json.loads((root / "report.json").read_text()), (root / DOCUMENT).read_text())[0]


def main():
    report = json.loads(Path(sys.argv[2]).read_text())
    bad, asked = judge(report, (Path(sys.argv[1]) / DOCUMENT).read_text())
    for line in bad:
        print(f"FAIL {line}")
    lines, branches, _ = measure(report)
    print(f"lines {percent(lines):.1f} % ({lines[1]} of {lines[0]}), "
          f"branches {percent(branches):.1f} % ({branches[1]} of {branches[0]})")
    print(f"{asked - len(bad)} passed, {len(bad)} failed")
    return bool(bad)


def _report(reached, missed, branches=10, taken=10, name="(anonymous namespace)::Work(int)"):
    functions = [{"name": name, "lineno": 1, "execution_count": 1}]
    lines = [{"line_number": i + 1, "count": int(i < reached), "gcovr/noncode": False, "branches": []}
             for i in range(reached + missed)]
    lines[0]["branches"] = [{"count": int(i < taken), "throw": False} for i in range(branches)]
    return {"report.json": json.dumps({"files": [{"file": "src/a.cpp", "functions": functions, "lines": lines}]})}


_ROW = {DOCUMENT: "| file | functions | why |\n|---|---|---|\n| `src/a.cpp` | `Work` | nobody calls it |\n"}
CLEAN = _report(99, 1, name="USB4_TUNNEL* Find<(Kind)1>::Work<int>(int)::{lambda(int)#1}::operator()(int)") | _ROW
PLANTED = {
    "lines at the limit": _report(95, 5) | _ROW,
    "branches at the limit": _report(99, 1, 100, 85) | _ROW,
    "a report without a file": {"report.json": json.dumps({"files": []})} | _ROW,
    "a function that nothing reaches, without a reason": _report(99, 1, name="Other(int)") | _ROW,
    "a reason for a function that is reached": _report(100, 0) | _ROW,
}

if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Takes each guard of a lock out of src/, one at a time, and shows that a run notices: guards.py ROOT [FILE...].

A guard is a local object whose class ends in 'Guard'. It counts as noticed when the driver no longer compiles without
it or a run of one of the scenarios below, or else a test of the room, fails that passes with it. The last line is 'N passed, N failed'.
"""
import re
import shutil
import sys
import time
from pathlib import Path

from run import TOOL, UNPATCHED, build, copy_tree, run, soak

GUARD = re.compile(r"^ +(?:const )?(\w*Guard) (\w+)\((.*)\);$")
SCENARIOS = ["typical-chain", "firmware-handover", "comings-and-goings", "sleep-changed-topology", "six-displays",
             "surprise-removal-while-scanning"]
PROFILES = ["none", "light"]
TESTS_OF = {"net": "xdomain"}  # the others have a program of their own name
SEEDS = 10


def guards(tree, only):
    for path in sorted((tree / "src").glob("**/*.cpp")) + sorted((tree / "src").glob("**/*.h")):
        name = str(path.relative_to(tree))
        if only and name not in only:
            continue
        for number, line in enumerate(path.read_text().splitlines()):
            if GUARD.match(line):
                yield name, number, line.strip()


def without(tree, name, number):
    lines = (tree / name).read_text().splitlines(keepends=True)
    lines[number] = "\n"
    (tree / name).write_text("".join(lines))


def first_failure(tree, tool):
    for scenario in SCENARIOS:
        for faults in PROFILES:
            found = soak(tree, tool, f"scenarios/{scenario}.toml", faults, 1, SEEDS)
            if found:
                return f"{scenario}, faults {faults}, seed {found[0]}: {found[1]}"
    return ""


def failing_test(tree, room):
    program = f"{TESTS_OF.get(room, room)}_tests"
    for command in (["cmake", "--preset", "dev"], ["ninja", "-C", "build/dev", program]):
        if run(*command, cwd=tree).returncode != 0:
            sys.exit(f"{program} does not build")
    done = run(f"build/dev/tests/{program}", "--gtest_brief=1", "--gtest_fail_fast", cwd=tree)
    failed = re.search(r"^\[  FAILED  \] (\w+\.\w+)", done.stdout, re.M)
    return failed.group(1) if failed else f"{program} ends with {done.returncode}" if done.returncode else ""


def verdict(tree, name, number):
    without(tree, name, number)
    if build(tree):
        return True, "does not compile"
    room = name.split("/")[1]
    found = first_failure(tree, TOOL) or failing_test(tree, room)
    return bool(found), found or "nobody notices"


def main():
    root = Path(sys.argv[1]).resolve()
    tree = root / "build/zoo"
    copy_tree(root, tree)
    errors = build(tree)
    if not errors:
        shutil.copy2(tree / TOOL, tree / UNPATCHED)
        errors = first_failure(tree, UNPATCHED)
    print(f"{'FAIL' if errors else 'ok  '} with all guards {errors}", flush=True)
    passed, failed = int(not errors), int(bool(errors))
    for name, number, line in list(guards(tree, sys.argv[2:])):
        began = time.monotonic()
        noticed, what = verdict(tree, name, number)
        copy_tree(root, tree)
        print(f"{'ok  ' if noticed else 'FAIL'} {name}:{number + 1} {line} ({time.monotonic() - began:.0f} s): {what}", flush=True)
        passed, failed = passed + noticed, failed + (not noticed)
    print(f"{passed} passed, {failed} failed")
    return failed != 0


if __name__ == "__main__":
    sys.exit(main())

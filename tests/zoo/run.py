#!/usr/bin/env python3
"""Plants each bug of this folder in a copy of the tree and shows that the simulator catches it: run.py ROOT.

A bug is a patch of src/. Its first line says what is wrong, its second one what finds it: 'Found by: SCENARIO FAULTS...'.
It counts as caught when a run of that scenario under one of these faults fails within 500 seeds, and the same run
without the patch passes. A patch that no longer applies or builds fails, so does an unpatched tree that fails in the
first 50 seeds. The last line is 'N passed, N failed'.
"""
import re
import shutil
import subprocess
import sys
import time
from pathlib import Path

SEEDS = 500
CHUNK = 50
USAGE = 2  # exit code of the tool: nothing has run, so nothing was caught
TOOL = "build/release/lab/usb4lab"
UNPATCHED = "build/release/usb4lab-unpatched"


def run(*command, cwd):
    return subprocess.run(command, cwd=cwd, capture_output=True, text=True)


def copy_tree(root, tree):
    """A copy without what is built, kept between runs so that only what a patch touches is compiled again."""
    tree.mkdir(parents=True, exist_ok=True)
    names = [n for n in run("git", "ls-files", "-z", "--cached", "--others", "--exclude-standard", cwd=root).stdout.split("\0") if n]
    for path in [path for folder in ("src", "platform", "sim", "lab") for path in (tree / folder).rglob("*")]:
        if path.is_file() and str(path.relative_to(tree)) not in names:
            path.unlink()
    for name in names:
        source, target = root / name, tree / name
        if not source.is_file():
            continue
        if target.is_file() and target.read_bytes() == source.read_bytes():
            continue
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(source.read_bytes())


def build(tree):
    if not (tree / "build/release/build.ninja").exists():
        done = run("cmake", "--preset", "release", cwd=tree)
        if done.returncode != 0:
            return done.stdout + done.stderr
    done = run("ninja", "-C", "build/release", "usb4lab", cwd=tree)
    return "" if done.returncode == 0 else done.stdout[-3000:]


def soak(tree, tool, scenario, faults, first, last):
    """(seed, what) of the first run that fails, or None."""
    done = run(tool, "soak", scenario, "--seeds", f"{first}..{last}", "--faults", faults, cwd=tree)
    failure = re.search(r"^FAIL (.*) seed=(\d+) faults=\S+ step=\d+$", done.stdout, re.M)
    if failure:
        return int(failure.group(2)), failure.group(1)
    if done.returncode == 0:
        return None
    if done.returncode == USAGE:
        sys.exit(f"{scenario}, faults {faults}: {done.stderr}")
    if first == last:
        return first, f"the process ended with {done.returncode}"
    # One that crashes does not say in which run.
    single = (soak(tree, tool, scenario, faults, seed, seed) for seed in range(first, last + 1))
    return next((found for found in single if found), (first, f"the process ended with {done.returncode}"))


def finders(patch):
    """The scenario and the fault profiles that a patch names, or None."""
    line = re.search(r"^Found by: (\S+\.toml) (.+)$", patch.read_text(), re.M)
    return (line.group(1), line.group(2).split()) if line else None


def hunt(tree, scenario, profiles):
    """(seed, faults, what) of the first failure, all profiles taking turns; None without one."""
    for first in range(1, SEEDS + 1, CHUNK):
        for faults in profiles:
            found = soak(tree, TOOL, scenario, faults, first, first + CHUNK - 1)
            if found:
                return found[0], faults, found[1]
    return None


def verdict(tree, patch):
    """(caught, what there is to say)."""
    named = finders(patch)
    if not named:
        return False, "its header does not say what finds it"
    applied = run("patch", "-p1", "--fuzz=2", "--no-backup-if-mismatch", "-i", str(patch), cwd=tree)
    if applied.returncode != 0:
        return False, f"no longer applies: {applied.stdout}"
    errors = build(tree)
    if errors:
        return False, errors
    found = hunt(tree, *named)
    if not found:
        return False, f"not caught within {SEEDS} seeds"
    seed, faults, what = found
    if soak(tree, UNPATCHED, named[0], faults, seed, seed):
        return False, f"seed {seed}, faults {faults} fails without it too"
    return True, f"{Path(named[0]).stem}, faults {faults}, seed {seed}: {what}"


def unpatched(tree, patches):
    """What is wrong with the tree as it is; empty when nothing is."""
    errors = build(tree)
    if errors:
        return errors
    shutil.copy2(tree / TOOL, tree / UNPATCHED)
    pairs = {(named[0], faults) for named in map(finders, patches) if named for faults in named[1]}
    for scenario, faults in sorted(pairs):
        found = soak(tree, UNPATCHED, scenario, faults, 1, CHUNK)
        if found:
            return f"{scenario}, faults {faults}, seed {found[0]}: {found[1]}"
    return ""


def main():
    root = Path(sys.argv[1]).resolve()
    tree = root / "build/zoo"
    patches = sorted((root / "tests/zoo").glob("*.patch"))
    copy_tree(root, tree)
    errors = unpatched(tree, patches)
    print(f"{'FAIL' if errors else 'ok  '} unpatched {errors}", flush=True)
    passed, failed = int(not errors), int(bool(errors))
    for patch in patches:
        began = time.monotonic()
        caught, what = verdict(tree, patch)
        for leftover in tree.glob("src/**/*.rej"):
            leftover.unlink()
        copy_tree(root, tree)
        print(f"{'ok  ' if caught else 'FAIL'} {patch.stem} ({time.monotonic() - began:.0f} s): {what}", flush=True)
        passed, failed = passed + caught, failed + (not caught)
    print(f"{passed} passed, {failed} failed")
    return failed != 0


if __name__ == "__main__":
    sys.exit(main())

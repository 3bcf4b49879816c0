#!/usr/bin/env python3
"""Plants each bug of this folder in a copy of the tree and shows that the simulator catches it: run.py ROOT.

A bug is a patch of src/ whose first lines say what is wrong with it. It counts as caught when one of 500 seeds, without
faults or with them, fails; the unpatched tree must pass the same seeds first, or nothing is proven. The last line is
'N passed, N failed'.
"""
import os
import re
import subprocess
import sys
from pathlib import Path

SEEDS = 500
CHUNK = 50
PROFILES = ("none", "late", "all")


def run(*command, cwd):
    return subprocess.run(command, cwd=cwd, capture_output=True, text=True)


def copy_tree(root, tree):
    """A copy without what is built, kept between runs so that only what a patch touches is compiled again."""
    tree.mkdir(parents=True, exist_ok=True)
    names = [n for n in run("git", "ls-files", "-z", "--cached", "--others", "--exclude-standard", cwd=root).stdout.split("\0") if n]
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


def first_failure(tree, last_seed):
    """(seed, profile, what) of the first failing run, or None."""
    for first in range(1, last_seed + 1, CHUNK):
        for profile in PROFILES:
            done = run("build/release/lab/usb4lab", "soak", "scenarios/host.toml", "--seeds", f"{first}..{first + CHUNK - 1}",
                       "--faults", profile, cwd=tree)
            failure = re.search(r"^FAIL (.*) seed=(\d+) faults=(\S+)$", done.stdout, re.M)
            if failure:
                return failure.group(2), failure.group(3), failure.group(1)
            if done.returncode != 0:
                return str(first), profile, f"ended with {done.returncode}"
    return None


def main():
    root = Path(sys.argv[1]).resolve()
    tree = root / "build/zoo"
    patches = sorted((root / "tests/zoo").glob("*.patch"))
    passed = failed = 0
    copy_tree(root, tree)
    errors = build(tree) or (first_failure(tree, CHUNK) and "the unpatched tree fails its own seeds")
    print(f"{'FAIL' if errors else 'ok  '} unpatched {errors or ''}")
    passed, failed = passed + (not errors), failed + bool(errors)
    for patch in patches:
        applied = run("patch", "-p1", "--no-backup-if-mismatch", "-i", str(patch), cwd=tree)
        errors = applied.stdout if applied.returncode != 0 else build(tree)
        caught = None if errors else first_failure(tree, SEEDS)
        copy_tree(root, tree)
        if caught:
            print(f"ok   {patch.stem}: seed {caught[0]}, faults {caught[1]}: {caught[2]}")
        else:
            print(f"FAIL {patch.stem}: {errors or f'not caught within {SEEDS} seeds'}")
        passed, failed = passed + bool(caught), failed + (not caught)
        sys.stdout.flush()
    print(f"{passed} passed, {failed} failed")
    return failed != 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Runs the checks over the tree, then proves that each can fail: every planted bad input must be found, every clean one pass.

Usage: run.py [ROOT]. The last line is 'N passed, N failed'; a check counts as one, and so does each planted input.
"""
import importlib
import sys
import tempfile
from pathlib import Path

from common import plant

CHECKS = ("includes", "homes", "sizes", "formatting", "braces", "words", "tests", "waivers", "scenario_keys", "runner", "coverage", "symbols", "windows", "published", "trace_events", "planted_bugs")


def outcome(module, root):
    """The findings of a check; an input that it cannot read is a finding too."""
    try:
        return list(module.findings(root))
    except (RuntimeError, OSError) as error:
        return [str(error)]


def on_planted(module, files):
    with tempfile.TemporaryDirectory() as folder:
        root = Path(folder)
        plant(root, files)
        if hasattr(module, "prepare"):
            module.prepare(root)
        return outcome(module, root)


def main():
    root = Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
    passed = failed = 0

    def report(good, what, details=()):
        nonlocal passed, failed
        passed, failed = passed + good, failed + (not good)
        if not good:
            print(f"FAIL {what}")
            for line in list(details)[:20]:
                print(f"     {line.replace(str(root) + '/', '')}")

    for name in CHECKS:
        module = importlib.import_module(name)
        if not getattr(module, "SELF_TEST_ONLY", False):
            found = outcome(module, root)
            report(not found, f"{name}: {module.__doc__}", found)
        found = on_planted(module, module.CLEAN)
        report(not found, f"{name}: refuses a clean input", found)
        for what, files in module.PLANTED.items():
            report(bool(on_planted(module, files)), f"{name}: does not find {what}")
    print(f"{passed} passed, {failed} failed")
    return failed != 0


if __name__ == "__main__":
    sys.exit(main())

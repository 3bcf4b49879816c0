#!/usr/bin/env python3
"""Runs test programs side by side and sums what they report: run_tests.py PROGRAM... [-- OPTION...].

A program that crashes, hangs or reports nothing counts as one failure more. The last line is 'N passed, N failed'.
"""
import json
import os
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

TIME_LIMIT_S = 1200


def run(program, options):
    """(passed, failed, text to show) of one program."""
    with tempfile.TemporaryDirectory() as folder:
        report = Path(folder) / "report.json"
        command = [program, f"--gtest_output=json:{report}", "--gtest_brief=1", *options]
        try:
            done = subprocess.run(command, capture_output=True, text=True, timeout=TIME_LIMIT_S, errors="replace")
            text, code = done.stdout + done.stderr, done.returncode
        except subprocess.TimeoutExpired as expired:
            return 0, 1, f"{program}: still running after {expired.timeout} s"
        try:
            counts = json.loads(report.read_text())
        except (OSError, ValueError):
            return 0, 1, f"{text[-6000:]}\n{program}: ended with {code} and no report"
    skipped = sum(test.get("result") == "SKIPPED" for suite in counts["testsuites"] for test in suite["testsuite"])
    failed = counts["failures"] + counts["errors"]
    passed = counts["tests"] - failed - skipped - counts["disabled"]
    if code != 0 and failed == 0:
        failed += 1
        text += f"\n{program}: every test passed, yet it ended with {code}"
    if passed + failed == 0:
        failed, text = 1, text + f"\n{program}: ran no test"
    return passed, failed, text[-12000:] if failed else ""


def main():
    arguments = sys.argv[1:]
    split = arguments.index("--") if "--" in arguments else len(arguments)
    programs, options = arguments[:split], arguments[split + 1:]
    passed = failed = 0
    with ThreadPoolExecutor(os.cpu_count() or 1) as pool:
        for program, result in zip(programs, pool.map(lambda p: run(p, options), programs)):
            print(f"{Path(program).name}: {result[0]} passed, {result[1]} failed")
            if result[2]:
                print(result[2])
            passed, failed = passed + result[0], failed + result[1]
    print(f"{passed} passed, {failed} failed")
    return failed != 0


if __name__ == "__main__":
    sys.exit(main())

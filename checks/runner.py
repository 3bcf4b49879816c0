"""The runner of the test programs counts what they report, and a crash, an empty run or a lie as a failure."""
import json
import stat

from run_tests import run

SELF_TEST_ONLY = True


def findings(root):
    for program in sorted((root / "programs").iterdir()):
        program.chmod(program.stat().st_mode | stat.S_IXUSR)
        passed, failed, text = run(str(program), [])
        if failed != 0 or passed != 2:
            yield f"{program.name}: {passed} passed, {failed} failed: {text.strip()}"


def _program(report, ending="exit 0"):
    """A program that writes `report` where the test framework would, and ends."""
    text = json.dumps(report) if report is not None else ""
    write = f"cat > \"${{1#--gtest_output=json:}}\" <<'E'\n{text}\nE\n" if report is not None else ""
    return {"programs/p": f"#!/bin/sh\n{write}{ending}\n"}


def _report(tests, failures=0, skipped=0):
    cases = [{"result": "SKIPPED"}] * skipped + [{"result": "COMPLETED"}] * (tests - skipped)
    return {"tests": tests, "failures": failures, "errors": 0, "disabled": 0, "testsuites": [{"testsuite": cases}]}


CLEAN = _program(_report(2))
PLANTED = {
    "a crash before the report": _program(None, "kill -SEGV $$"),
    "a crash after the report": _program(_report(2), "kill -SEGV $$"),
    "a failing test": _program(_report(3, failures=1), "exit 1"),
    "a program without tests": _program(_report(0)),
    "a program whose tests are all skipped": _program(_report(2, skipped=2)),
}

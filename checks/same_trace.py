#!/usr/bin/env python3
"""One seed is one run, whatever the compiler was told: same_trace.py TOOL OTHER-TOOL compares traces of the two builds.

Each seed counts as one; and so does proof that different seeds differ. The last line is 'N passed, N failed'.
"""
import re
import subprocess
import sys

SEEDS = range(1, 13)


def trace(tool, seed):
    text = subprocess.run([tool, "run", "scenarios/host.toml", "--seed", str(seed), "--faults", "heavy"],
                          capture_output=True, text=True).stdout
    match = re.search(r"^run .* trace ([0-9a-f]{16})$", text, re.M)
    return match.group(1) if match else f"no trace in {text[-300:]!r}"


def main():
    passed = failed = 0
    seen = set()
    for seed in SEEDS:
        first, second = (trace(tool, seed) for tool in sys.argv[1:3])
        seen.add(first)
        if first == second and len(first) == 16:
            passed += 1
        else:
            failed += 1
            print(f"FAIL seed {seed}: {first} against {second}")
    different = len(seen) == len(SEEDS)
    if not different:
        print(f"FAIL {len(SEEDS)} seeds gave {len(seen)} traces")
    print(f"{passed + different} passed, {failed + (not different)} failed")
    return failed != 0 or not different


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Seeds of the host under each fault, of the gallery and of generated domains under drawn ones: soak.py TOOL FIRST LAST.

Two processes for each processor. Failing seeds come out as the commands that replay them; the last line is
'N passed, N failed'.
"""
import glob
import os
import re
import subprocess
import sys

FAULTS = ("none", "lose", "delay", "duplicate", "reorder", "corrupt", "truncate", "wrong-sequence", "wrong-route",
          "error-packet", "late", "unsolicited", "storm", "memory", "hardware", "light", "heavy")


def main():
    tool, first, last = sys.argv[1:4]
    shards = os.cpu_count() or 1
    drawn = sorted(glob.glob("scenarios/*.toml")) + ["generated"]
    processes = [
        subprocess.Popen([tool, "soak", *scenarios, "--seeds", f"{first}..{last}", "--shard", f"{i + 1}/{shards}",
                          "--faults", *faults], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        for scenarios, faults in ((["scenarios/host.toml"], FAULTS), (drawn, ("none", "light", "heavy")))
        for i in range(shards)
    ]
    passed = failed = 0
    for process in processes:
        text = process.communicate()[0]
        print(text, end="")
        match = re.search(r"^(\d+) passed, (\d+) failed$", text, re.M)
        passed += int(match.group(1)) if match else 0
        failed += int(match.group(2)) if match else 1
    print(f"{passed} passed, {failed} failed")
    return failed != 0


if __name__ == "__main__":
    sys.exit(main())

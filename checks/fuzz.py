#!/usr/bin/env python3
"""Runs a libFuzzer program: fuzz.py PROGRAM CORPUS FINDINGS SECONDS.

New inputs and whatever breaks go to the folder FINDINGS; the corpus is only read. The last line is 'N passed, N failed'.
"""
import re
import subprocess
import sys
from pathlib import Path

ONE_INPUT_S = 60


def main():
    program, corpus, findings, seconds = sys.argv[1:]
    Path(findings, "corpus").mkdir(parents=True, exist_ok=True)
    options = [f"-max_total_time={seconds}", f"-timeout={ONE_INPUT_S}", "-max_len=1100", "-rss_limit_mb=4096",
               "-print_final_stats=1", f"-artifact_prefix={findings}/"]
    done = subprocess.run([program, *options, f"{findings}/corpus", corpus], capture_output=True, text=True,
                          errors="replace")
    ran = re.search(r"stat::number_of_executed_units:\s*(\d+)", done.stderr)
    count = int(ran.group(1)) if ran else 0
    covered = re.findall(r"cov: (\d+)", done.stderr)
    if done.returncode == 0 and count > 0:
        print(f"{count} inputs in {seconds} s, {covered[-1] if covered else 0} places of the driver reached")
        print(f"{count} passed, 0 failed")
        return 0
    print(done.stderr[-8000:])
    broken = re.search(r"Test unit written to (\S+)", done.stderr)
    if broken:
        print(f"replay: {program} {broken.group(1)}")
    print(f"{max(count - 1, 0)} passed, 1 failed")
    return 1


if __name__ == "__main__":
    sys.exit(main())

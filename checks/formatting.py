"""Every file stands as the repository's .clang-format puts it."""
import subprocess

from common import code_files


def findings(root):
    files = [str(path) for path in code_files(root)]
    if not files:
        return
    done = subprocess.run(["clang-format", "--dry-run", f"--style=file:{root}/.clang-format", *files], capture_output=True, text=True)
    named = sorted({line.split(":")[0] for line in done.stderr.splitlines() if ": warning:" in line or ": error:" in line})
    for name in named:
        yield f"{name}: not formatted (clang-format -i)"
    if done.returncode != 0 and not named:
        yield f"clang-format: {done.stderr.strip()}"


_STYLE = {".clang-format": "BasedOnStyle: Google\n"}
CLEAN = _STYLE | {"src/cm/bus.cpp": "int F(int a) { return a; }\n"}
PLANTED = {"a brace on the wrong line": _STYLE | {"src/cm/bus.cpp": "int F(int a)\n{\n  return a;\n}\n"}}

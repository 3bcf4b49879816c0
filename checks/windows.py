"""Every file of the driver also compiles against the platform's packaged kernel headers."""
import shutil
import subprocess
from pathlib import Path

from common import driver_objects

HERE = Path(__file__).resolve().parent.parent


def findings(root):
    build = root / "build/windows"
    for command in (["cmake", "--preset", "windows"], ["ninja", "-C", str(build), "-k", "0"]):
        done = subprocess.run(command, cwd=root, capture_output=True, text=True)
        if done.returncode != 0:
            lines = [line for line in (done.stdout + done.stderr).splitlines() if "rror" in line]
            yield from lines[:12] or [f"{' '.join(command)} failed"]
            return
    driver_objects(root, "windows", ".obj")


def prepare(root):
    for name in ("CMakeLists.txt", "CMakePresets.json", "src/CMakeLists.txt"):
        (root / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(HERE / name, root / name)
    shutil.copytree(HERE / "cmake", root / "cmake")


CLEAN = {"src/hostif/a.cpp": "#include <ntddk.h>\nLONG Exchange(LONG volatile* to);\n"
                             "LONG Exchange(LONG volatile* to) { return InterlockedExchange(to, 1); }\n"}
PLANTED = {
    "a call that the platform does not have":
        {"src/hostif/a.cpp": "#include <ntddk.h>\nLONG F();\nLONG F() { return KeNoSuchCall(); }\n"},
    "a parameter order of our own":
        {"src/hostif/a.cpp": "#include <ntddk.h>\nvoid F(KEVENT* e);\nvoid F(KEVENT* e) { KeInitializeEvent(e, FALSE, SynchronizationEvent); }\n"},
}

"""Each planted bug in tests/zoo still applies to the driver, and says what finds it."""
import re
import subprocess

FINDER = re.compile(r"^Found by: \S+\.toml \S", re.M)


def findings(root):
    for patch in sorted((root / "tests/zoo").glob("*.patch")):
        if not FINDER.search(patch.read_text()):
            yield f"{patch}: does not say what finds it"
        # As tests/zoo/run.py applies it.
        applied = subprocess.run(["patch", "-p1", "--fuzz=2", "--dry-run", "--force", "-i", str(patch)], cwd=root, capture_output=True, text=True)
        if applied.returncode != 0:
            yield f"{patch}: no longer applies"


_PATCH = "A bug.\nFound by: scenarios/host.toml none\n\n--- a/src/a.cpp\n+++ b/src/a.cpp\n@@ -1,3 +1,3 @@\n 1\n-2\n+3\n 4\n"
CLEAN = {"src/a.cpp": "1\n2\n4\n", "tests/zoo/01-a.patch": _PATCH}
PLANTED = {
    "a patch of code that has changed": CLEAN | {"src/a.cpp": "1\n5\n4\n"},
    "a patch that nothing finds": CLEAN | {"tests/zoo/01-a.patch": _PATCH.replace("Found by", "Found")},
}

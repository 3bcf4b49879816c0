"""A test states stimulus and effect as literal values: it never includes the driver's register layouts, and it asserts."""
import re

from common import code_files

REGISTERS = re.compile(r'#\s*include\s*[<"](?:src/)?[\w/]*registers?[\w]*\.h[>"]')
TEST = re.compile(r"^(?:TEST|TEST_F|TEST_P|WORLD_TEST)\s*\(([^)]*)\)", re.M)
# A helper that fails the test by itself counts: OnTask does when the verifier stops its task.
ASSERTION = re.compile(r"\b(?:EXPECT|ASSERT|FAIL|SUCCEED|Expect|Check|OnTask)\w*\s*\(")


def findings(root):
    for path in code_files(root, "tests", "fuzz"):
        text = path.read_text()
        for match in REGISTERS.finditer(text):
            name = re.search(r'[<"]([^>"]+)[>"]', match.group(0)).group(1).removeprefix("src/")
            if (root / "src" / name).exists():
                yield f"{path}: includes the driver's register layouts ({name})"
        starts = list(TEST.finditer(text))
        for match, following in zip(starts, starts[1:] + [None]):
            body = text[match.end():following.start() if following else len(text)]
            if not ASSERTION.search(body):
                yield f"{path}: test {match.group(1)} asserts nothing"


_TREE = {"src/include/registers.h": "", "sim/host_registers.h": ""}
CLEAN = _TREE | {"tests/a.cpp": '#include "sim/host_registers.h"\nTEST(A, B) {\n  EXPECT_EQ(1, 1);\n}\n'}
PLANTED = {
    "a test that includes the driver's registers": _TREE | {"tests/a.cpp": '#include "include/registers.h"\n'},
    "a test that asserts nothing": _TREE | {"tests/a.cpp": "TEST(A, B) {\n  int a = 1;\n  (void)a;\n}\n"},
}

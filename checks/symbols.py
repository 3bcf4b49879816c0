"""The driver's release objects: what they ask of the outside, and that they hold no writable static data."""
import re

from common import compile_driver_objects, driver_objects, run

COMPILER_HELPERS = {"memcpy", "memset", "memcmp", "memmove"}


def platform_calls(root):
    """Names declared with a parameter list in the platform's public headers."""
    names = set()
    for path in (root / "platform/include").rglob("*.h"):
        text = re.sub(r"//[^\n]*|/\*.*?\*/", "", path.read_text(), flags=re.S)
        text = re.sub(r"\\\n", " ", text)
        text = re.sub(r"^[ \t]*#[^\n]*", "", text, flags=re.M)  # a macro would swallow the declaration after it
        names.update(re.findall(r"\b(\w+)\s*\([^;{}]*\)\s*;", text))
    return names


def check_undefined(root, objects):
    defined, wanted = set(), {}
    for path in objects:
        for line in run("nm", "--format=posix", str(path)).splitlines():
            name, kind = line.split()[:2]
            if kind in "Uw":
                wanted.setdefault(name, path)
            elif kind.isupper() or kind in "u":
                defined.add(name)
    calls = platform_calls(root)
    for name in sorted(set(wanted) - defined - COMPILER_HELPERS - calls - {"_GLOBAL_OFFSET_TABLE_"}):
        yield f"{wanted[name].name} needs {run('c++filt', name).strip()}, which is not a platform call"


def check_writable(path):
    for line in run("readelf", "-SW", str(path)).splitlines():
        match = re.match(r"\s*\[\s*\d+\]\s+(\S+)\s+\S+\s+[0-9a-f]+\s+[0-9a-f]+\s+([0-9a-f]+)\s+[0-9a-f]+\s+(\S*)", line)
        if not match:
            continue
        section, size, flags = match.group(1), int(match.group(2), 16), match.group(3)
        if section.startswith((".init_array", ".ctors")):
            yield f"{path.name}: a global has a constructor ({section})"
        elif "W" in flags and size > 0 and not section.startswith(".data.rel.ro"):
            yield f"{path.name}: {size} bytes of writable static data in {section}"


def findings(root):
    objects = driver_objects(root)
    yield from check_undefined(root, objects)
    for path in objects:
        yield from check_writable(path)


_HEADER = {"platform/include/ntddk.h": 'extern "C" {\nunsigned char KeGetCurrentIrql(void);\n}\n'}
_GOOD = 'extern "C" unsigned char KeGetCurrentIrql(void);\nint Level() { return KeGetCurrentIrql(); }\n' \
        "extern const char* const kNames[2];\nconst char* const kNames[2] = {\"a\", \"b\"};\n"


prepare = compile_driver_objects


CLEAN = _HEADER | {"src/hostif/ring.cpp": _GOOD}
PLANTED = {
    "a call of the C library": _HEADER | {"src/hostif/a.cpp": "#include <cstdlib>\nvoid* F() { return malloc(8); }\n"},
    "an operator of the C++ library": _HEADER | {"src/hostif/a.cpp": "int* F() { return new int[4]; }\n"},
    "a counter in .data": _HEADER | {"src/hostif/a.cpp": "int Next() { static int n = 7; return n++; }\n"},
    "a counter in .bss": _HEADER | {"src/hostif/a.cpp": "int g;\nint Next() { return g++; }\n"},
    "a global with a constructor":
        _HEADER | {"src/hostif/a.cpp": "int Value();\nint Value() { return 3; }\nextern const int kValue;\n"
                   "struct A { A(); int v; };\nA::A() : v(Value() + *reinterpret_cast<volatile int*>(16)) {}\nA g;\n"},
}

"""What a header of the driver declares is defined in that header or in the .cpp file of its name; upcalls.h lists what other rooms define."""
import json
import re

from common import code_files, run

# Annotations stand in front of a declaration like calls; the reader of tags passes over them.
ANNOTATION = re.compile(r"\b(_[A-Z]\w*_)\s*\(")
# A callback is declared by its type alone.
CALLBACK = re.compile(r"^(?:EVT_|PFN_|DRIVER_)")


def tags(files):
    ignored = sorted({name for path in files for name in ANNOTATION.findall(path.read_text())})
    text = run("ctags", "--output-format=json", "--languages=C++", "--langmap=C++:.cpp.h", "--kinds-C++=fpvx", "--fields=+nSs",
               "--fields-C++=+{properties}", *(f"-I{name}+" for name in ignored), "-o", "-", *map(str, files))
    for line in text.splitlines():
        tag = json.loads(line)
        if "__anon" not in tag.get("scope", ""):
            yield tag


def is_declaration(tag):
    if tag["kind"] == "prototype":
        return not {"delete", "default"} & set(tag.get("properties", "").split(","))
    return tag["kind"] in ("variable", "externvar") and CALLBACK.match(tag.get("typeref", "").removeprefix("typename:"))


def findings(root):
    files = list(code_files(root, "src"))
    if not files:
        return
    declared, defined = [], {}
    for tag in tags(files):
        name = f"{tag['scope']}::{tag['name']}" if "scope" in tag else tag["name"]
        if tag["kind"] == "function":
            defined.setdefault(name, set()).add(tag["path"])
        elif tag["path"].endswith(".h") and not tag["path"].endswith("/upcalls.h") and is_declaration(tag):
            declared.append((name, tag["path"], tag["line"]))
    for name, path, line in declared:
        places = defined.get(name, set())
        if not places & {path, path.removesuffix(".h") + ".cpp"}:
            yield f"{path}:{line}: {name} is defined " + (f"in {', '.join(sorted(places))}" if places else "nowhere")


_TREE = {
    "src/hostif/ring.h": "_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] int\n    Start(int hop);\n"
                         "inline int Twice(int hop) {\n  return 2 * hop;\n}\n"
                         "EVT_WDF_INTERRUPT_ISR Isr;\n"
                         "class Guard {\n public:\n  Guard();\n  Guard(const Guard&) = delete;\n  int Size() const { return 1; }\n};\n",
    "src/hostif/ring.cpp": "int Start(int hop) {\n  return Twice(hop);\n}\nbool Isr(int) {\n  return true;\n}\nGuard::Guard() {}\n",
    "src/hostif/upcalls.h": "void BusStart(int domain);  // cm\n",
    "src/cm/bus.cpp": "void BusStart(int) {}\n",
}
CLEAN = _TREE
PLANTED = {
    "a function in a file of another name": _TREE | {"src/hostif/ring.h": _TREE["src/hostif/ring.h"] + "int Stop(int hop);\n",
                                                     "src/hostif/ring_stop.cpp": "int Stop(int hop) {\n  return hop;\n}\n"},
    "an annotated function in a file of another name":
        _TREE | {"src/hostif/ring.h": _TREE["src/hostif/ring.h"] + "_Requires_lock_held_(ring->Lock) [[nodiscard]] bool\n    Poll(int* ring);\n",
                 "src/hostif/ring_poll.cpp": "bool Poll(int* ring) {\n  return ring;\n}\n"},
    "a method in a file of another name": _TREE | {"src/hostif/ring.cpp": _TREE["src/hostif/ring.cpp"].replace("Guard::Guard() {}\n", ""),
                                                   "src/hostif/guard.cpp": "Guard::Guard() {}\n"},
    "a callback in a file of another name": _TREE | {"src/hostif/ring.h": _TREE["src/hostif/ring.h"] + "EVT_WDF_DEVICE_D0_EXIT Exit;\n",
                                                     "src/hostif/exit.cpp": "int Exit(int) {\n  return 0;\n}\n"},
    "a function of the same name in another room": _TREE | {"src/cm/bus.h": "int Scan(int adapter);\n",
                                                            "src/hostif/bus.cpp": "int Scan(int adapter) {\n  return adapter;\n}\n"},
    "a function that nothing defines": _TREE | {"src/hostif/ring.h": _TREE["src/hostif/ring.h"] + "int Stop(int hop);\n"},
}

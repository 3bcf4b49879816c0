"""Includes never go up: who may include whom, and the number of calls that go up by name."""
import re

from common import code_files

# The rooms of each folder, lowest first. A file in no room stands above them all.
ROOMS = {
    "src": ("include", "hostif", "topology", "tunnel", "xdomain", "net", "cm", "ioctl", "driver"),
    "platform": ("include", "host", "scheduler", "memory", "kernel", "device", "framework", "pnp"),
    "sim": ("rules", "host", "registers", "router", "peer", "dataplane", "fabric", "firmware"),
    "lab": ("input", "machine", "scenario", "report", "oracle", "timeline", "decode", "run"),
}
# Folder -> folders of this tree that it may include by path.
MAY = {
    "platform": ("platform",),
    "sim": ("sim", "platform"),
    "lab": ("lab", "src", "sim", "platform"),
    "tests": ("tests", "lab", "src", "sim", "platform"),
    "fuzz": ("fuzz", "lab", "src", "sim", "platform"),
    "bench": ("bench", "lab", "src", "sim", "platform"),
}
STANDARD = {"array", "bit", "concepts", "cstddef", "cstdint", "cstring", "span", "type_traits", "utility"}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def includes(path):
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = INCLUDE.match(line)
        if match:
            yield number, match.group(1), match.group(2)


def check_room(root, path):
    """An include of a file in its own folder never goes up to a higher room."""
    folder, *inner = path.relative_to(root).parts
    rooms = ROOMS[folder]
    if len(inner) > 1 and inner[0] not in rooms:
        yield f"{path}: {folder}/{inner[0]} is not a room of the house"
        return
    height = rooms.index(inner[0]) if len(inner) > 1 else len(rooms)
    base = root / folder if folder == "src" else root
    for number, _, name in includes(path):
        target = base / name if (base / name).exists() else path.parent / name
        if not target.exists() or (root / folder).resolve() not in target.resolve().parents:
            continue
        other = target.resolve().relative_to((root / folder).resolve()).parts
        if len(other) > 1 and rooms.index(other[0]) > height:
            yield f"{path}:{number}: {inner[0]} includes {name}, which goes up to {other[0]}"


def check_driver(root, path, platform_headers):
    for number, _, name in includes(path):
        inside = (root / "src" / name).exists() or (path.parent / name).exists()
        if not inside and name not in STANDARD and name not in platform_headers:
            yield f"{path}:{number}: the driver may not include {name}"


def check_folder(root, path):
    folder = path.relative_to(root).parts[0]
    for number, _, name in includes(path):
        first = name.split("/")[0]
        if (root / name).exists() and first not in MAY[folder]:
            yield f"{path}:{number}: {folder} may not include {name}"
        elif folder in ("platform", "sim") and (root / "src" / name).exists() and not (root / folder / name).exists() \
                and not (path.parent / name).exists():
            yield f"{path}:{number}: {folder} may not include the driver's {name}"


def check_upcalls(root):
    declared = 0
    for path in sorted((root / "src").glob("*/upcalls.h")):
        text = re.sub(r"//[^\n]*", "", path.read_text())
        declared += len(re.findall(r"\b\w+\s*\([^;{}]*\)\s*(?:noexcept)?\s*;", text))
    stated = re.search(r"Calls that go up: (\d+)", (root / "docs/architecture.md").read_text())
    if not stated:
        yield "docs/architecture.md: has no line 'Calls that go up: N'"
    elif declared != int(stated.group(1)):
        yield f"docs/architecture.md says 'Calls that go up: {stated.group(1)}', the rooms' upcalls.h list {declared}"


def findings(root):
    platform_headers = {str(p.relative_to(base)) for base in (root / "platform/include", root / "platform/include/framework")
                        for p in base.rglob("*.h")}
    for path in code_files(root):
        folder = path.relative_to(root).parts[0]
        if folder in ROOMS:
            yield from check_room(root, path)
        if folder == "src":
            yield from check_driver(root, path, platform_headers)
        elif folder in MAY:
            yield from check_folder(root, path)
    yield from check_upcalls(root)


_TREE = {
    "docs/architecture.md": "Calls that go up: 1\n",
    "platform/include/ntddk.h": "",
    "platform/host/host_kernel.h": "",
    "src/include/status.h": "",
    "src/hostif/ring.h": '#include "include/status.h"\n#include <ntddk.h>\n#include <array>\n',
    "src/hostif/upcalls.h": "int KivUsb4BusStart(int domain, bool again);  // cm\n",
    "src/cm/bus.h": '#include "hostif/ring.h"\n',
    "platform/framework/wdf_queue.cpp": '#include "platform/host/host_kernel.h"\n#include "queue_text.h"\n',
    "platform/framework/queue_text.h": "",
    "sim/fabric/fabric.h": '#include "sim/router/router.h"\n',
    "sim/router/router.h": "",
    "sim/fabric/fabric.cpp": '#include "platform/host/host_kernel.h"\n',
    "lab/run/run.h": "",
    "lab/main.cpp": '#include "lab/run/run.h"\n',
}
CLEAN = _TREE
PLANTED = {
    "a room includes one above it": _TREE | {"src/hostif/ring.h": '#include "cm/bus.h"\n'},
    "the driver includes the model": _TREE | {"src/cm/bus.cpp": '#include "sim/fabric/fabric.h"\n', "sim/fabric/fabric.h": ""},
    "the driver includes a library": _TREE | {"src/cm/bus.cpp": "#include <vector>\n"},
    "the driver includes the platform by path": _TREE | {"src/cm/bus.cpp": '#include "platform/host/host_kernel.h"\n'},
    "the model includes the driver": _TREE | {"sim/fabric/fabric.cpp": '#include "src/hostif/ring.h"\n'},
    "the model includes the driver by its own path": _TREE | {"sim/fabric/fabric.cpp": '#include "hostif/ring.h"\n'},
    "the platform includes the model": _TREE | {"platform/io.cpp": '#include "sim/fabric/fabric.h"\n', "sim/fabric/fabric.h": ""},
    "a folder that is no room": _TREE | {"src/misc/misc.cpp": ""},
    "a folder of the model that is no room": _TREE | {"sim/misc/misc.cpp": ""},
    "a room of the platform includes one above it":
        _TREE | {"platform/memory/pool.cpp": '#include "platform/framework/queue_text.h"\n'},
    "a room of the model includes one above it": _TREE | {"sim/router/router.h": '#include "sim/fabric/fabric.h"\n'},
    "a room of the tool includes one above it": _TREE | {"lab/oracle/oracle.cpp": '#include "lab/run/run.h"\n'},
    "one upcall more than stated": _TREE | {"src/topology/upcalls.h": "void KivUsb4XdomainRemove(void* peer);\n"},
}

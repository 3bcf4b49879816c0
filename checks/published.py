"""The kernel's headers of this tree say what the published ones say: prototypes, constants, enumerators, sizes."""
import re
import subprocess
import tempfile
from pathlib import Path

DDK = "/usr/share/mingw-w64/include/ddk"
# The same size there and here; other structures hold fewer fields here, or what this kernel keeps in them.
SAME_SIZE = ("KEVENT", "KMUTEX", "KLOCK_QUEUE_HANDLE", "LIST_ENTRY", "UNICODE_STRING", "OBJECT_ATTRIBUTES", "LARGE_INTEGER",
             "IO_STATUS_BLOCK", "BUS_INTERFACE_STANDARD", "INTERFACE", "CM_PARTIAL_RESOURCE_DESCRIPTOR", "EVENT_DESCRIPTOR",
             "EVENT_DATA_DESCRIPTOR", "KEY_VALUE_FULL_INFORMATION", "ACPI_EVAL_INPUT_BUFFER_COMPLEX", "GUID")
PROTOTYPE = re.compile(r"^(?:DECLSPEC_NORETURN )?[A-Z][A-Z_0-9]+ \w+\([^;{]*?\);", re.M | re.S)
CONSTANT = re.compile(r"^#define ([A-Z]\w+) ((?:\(\(NTSTATUS\))?(?:0x)?[0-9A-Fa-f]+(?:ULL|u)?\)?)$", re.M)
ENUMERATION = re.compile(r"^typedef enum[^{;]*\{([^}]*)\}", re.M | re.S)


def enumerators(body):
    value = -1
    for item in filter(None, (part.strip() for part in body.split(","))):
        name, _, given = (part.strip() for part in item.partition("="))
        value = int(given, 0) if given else value + 1
        yield name, value


def statements(text):
    """One C++ line for each thing that a header says; each fails to compile when the published headers say otherwise."""
    text = re.sub(r"//.*", "", text)
    for match in PROTOTYPE.finditer(text):
        yield 'extern "C" ' + " ".join(match.group(0).split())
    for name, value in CONSTANT.findall(text):
        yield f'#ifdef {name}\nstatic_assert({name} == {value}, "{name}");\n#endif'
    for body in ENUMERATION.findall(text):
        for name, value in enumerators(body):
            yield f'static_assert({name} == {value}, "{name}");'


def ours(folder, size):
    """Sizes as this tree's headers have them."""
    program = "#include <ntddk.h>\n#include <acpiioct.h>\n" + "".join(f"char {name}_[sizeof({name})];\n" for name in size)
    done = subprocess.run(["g++", "-std=c++20", "-fshort-wchar", "-xc++", "-S", "-o-", f"-I{folder}", "-"], input=program,
                          capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(done.stderr)
    return dict(re.findall(r"^\s*\.size\s+(\w+)_, (\d+)", done.stdout, re.M))


def findings(root):
    folder = root / "platform/include"
    headers = sorted(folder.glob("*.h"))
    lines = ["#include <ntddk.h>", "#include <ntstrsafe.h>", "#include <acpiioct.h>", "typedef ULONG64 POOL_FLAGS;"]
    for header in headers:
        lines += statements(header.read_text())
    if (folder / "wdm_io.h").exists():
        lines += [f'static_assert(sizeof({name}) == {size}, "{name}");' for name, size in ours(folder, SAME_SIZE).items()]
    with tempfile.TemporaryDirectory() as scratch:
        source = Path(scratch) / "published.cpp"
        source.write_text("\n".join(lines) + "\n")
        done = subprocess.run(["x86_64-w64-mingw32-g++", "-std=c++20", "-fsyntax-only", "-w", "-isystem", DDK,
                               "-D__INTRINSIC_DEFINED_InterlockedBitTestAndSet",
                               "-D__INTRINSIC_DEFINED_InterlockedBitTestAndReset", str(source)], capture_output=True, text=True)
    for line in done.stderr.splitlines():
        if " error: " in line:
            yield "platform/include: " + line.split(" error: ")[1]
    if done.returncode != 0 and " error: " not in done.stderr:
        yield done.stderr


CLEAN = {"platform/include/wdm.h": "NTSTATUS ZwClose(HANDLE Handle);\n#define DISPATCH_LEVEL 2\n"
                                   "typedef enum _EVENT_TYPE { NotificationEvent, SynchronizationEvent } EVENT_TYPE;\n"}
PLANTED = {
    "a parameter of another type": {"platform/include/wdm.h": "NTSTATUS ZwClose(ULONG Handle);\n"},
    "a constant of another value": {"platform/include/ntstatus.h": "#define STATUS_TIMEOUT ((NTSTATUS)0x00000103)\n"},
    "enumerators in another order":
        {"platform/include/wdm.h": "typedef enum _EVENT_TYPE { SynchronizationEvent, NotificationEvent } EVENT_TYPE;\n"},
}

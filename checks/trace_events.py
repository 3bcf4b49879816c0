"""A trace event names a public operation, and a value says its kind: no private helper speaks for itself, a route is AsRoute."""
import json
import re

from common import code_files, run

EVENT = re.compile(r"\bTrace(?:Info|Warning|Error|Step)(By)?\(")
# What a field of this name holds, and the wrappers that say so; a literal adapter number stands beside its route.
KINDS = {"route": ("AsRoute",), "wanted route": ("AsRoute",), "status": ("AsStatus",), "result": ("AsResult",), "mask": ("AsHex",),
         "word": ("AsHex",), "offset": ("AsHex",), "timeout": ("AsMs",)}
STRING = r'"(?:[^"\\]|\\.)*"'


def private_functions(path):
    """(first line, last line, name) of functions in anonymous namespaces, their classes and lambdas included."""
    tags = run("ctags", "--output-format=json", "--languages=C++", "--langmap=C++:.cpp.h", "--kinds-C++=f", "--fields=+neS", "-o", "-",
               str(path))
    for line in tags.splitlines():
        tag = json.loads(line)
        if "__anon" in tag.get("scope", ""):
            yield tag["line"], tag.get("end", tag["line"]), tag["name"]


def arguments(text, start):
    """The text of a call's arguments, from behind its opening bracket."""
    depth, end = 1, start
    while depth and end < len(text):
        string = re.compile(STRING).match(text, end)
        if string:
            end = string.end()
            continue
        depth += {"(": 1, ")": -1}.get(text[end], 0)
        end += 1
    return text[start:end - 1]


def findings(root):
    for path in code_files(root, "src"):
        if path.name in ("trace.h", "trace.cpp"):
            continue
        text = path.read_text()
        private = list(private_functions(path)) if EVENT.search(text) else []
        for event in EVENT.finditer(text):
            line = text.count("\n", 0, event.start()) + 1
            owner = [name for first, last, name in private if first <= line <= last]
            if owner and not event.group(1):
                yield f"{path}:{line}: {owner[0]} is private; name the operation that it works for"
            given = arguments(text, event.end())
            for key, wrappers in KINDS.items():
                for value in re.finditer(rf'"{key}",\s*(\w+)', given):
                    if value.group(1) not in wrappers:
                        yield f"{path}:{line}: \"{key}\" is no {wrappers[0]}"


def _source(function, field):
    return f"namespace {{\n\nvoid Helper(int value) {{\n  {function}{field});\n}}\n\n}}  // namespace\n"


CLEAN = {"src/cm/bus.cpp": _source("TraceErrorBy(NAME_OF(KivUsb4BusStart), ", '"gone", "route", AsRoute(value), "hop", value')}
PLANTED = {
    "a helper that speaks for itself": {"src/cm/bus.cpp": _source("TraceError(", '"gone"')},
    "a route that is a number": {"src/cm/bus.cpp": _source("TraceErrorBy(operation, ", '"gone", "route", value')},
    "a status that is a number": {"src/cm/bus.cpp": "void Operation(int value) {\n  TraceInfo(\"gone\", \"hop\", Of(1),\n            \"status\", value);\n}\n"},
}

"""docs/scenarios.md lists every key of a scenario file that the tool reads, and no other."""
import re

READERS = ("lab/scenario/scenario.cpp", "lab/scenario/topology_input.cpp", "lab/scenario/protocol_input.cpp",
           "lab/scenario/peer_input.cpp")
CALL = re.compile(r'\b(?:Has|Text|RequiredText|Number|Choice|Index|Flag|Duration|TextList|Tables|Table|ReadAdapter|ReadPort|OneOf|Mbps)'
                  r'\((?:table, )?"(\w+)"')
BY_NAME = re.compile(r'\{"(\w+)", &')  # keys that are read in a loop
LINE = re.compile(r"^\| (`\w+`(?:, `\w+`)*)(?: and the keys above)? \|", re.M)


def findings(root):
    code = "".join((root / name).read_text() for name in READERS)
    read = set(CALL.findall(code)) | set(BY_NAME.findall(code))
    text = (root / "docs/scenarios.md").read_text()
    listed = {key for cell in LINE.findall(text) for key in re.findall(r"`(\w+)`", cell)}
    for key in sorted(read - listed):
        yield f"docs/scenarios.md: no line for the key {key}"
    for key in sorted(listed - read):
        yield f"docs/scenarios.md: nothing reads the key {key}"


_CODE = {"lab/scenario/scenario.cpp": 'table.Text("name", "");\n{"dpTunnels", &expectation.dpTunnels}',
         "lab/scenario/topology_input.cpp": 'table.Number("lanes", 2, 1, 2);\n', "lab/scenario/protocol_input.cpp": 'Mbps(table, "up");\n',
         "lab/scenario/peer_input.cpp": ""}
_DOCS = "| key |\n|---|\n| `name` | text |\n| `dpTunnels` | number |\n| `lanes`, `up` | number |\n"
CLEAN = _CODE | {"docs/scenarios.md": _DOCS}
PLANTED = {
    "a key without its line": _CODE | {"docs/scenarios.md": _DOCS.replace("| `dpTunnels` | number |\n", "")},
    "a line without its key": _CODE | {"docs/scenarios.md": _DOCS + "| `colour` | text |\n"},
}

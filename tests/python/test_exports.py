"""The built library offers the interpreter its entry function and keeps all else to itself."""

import importlib
import subprocess


def exported_symbols(library: str) -> list[str]:
    listing = subprocess.run(
        ["nm", "-D", "--defined-only", library], check=True, capture_output=True, text=True
    )
    return [line.split()[-1] for line in listing.stdout.splitlines()]


def test_library_exports_its_entry_and_nothing_else() -> None:
    library = importlib.import_module("_lib_nb_sim").__file__
    assert library is not None
    assert exported_symbols(library) == ["PyInit__lib_nb_sim"]

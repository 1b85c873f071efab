"""The library's exported symbols: its entry function, and two classes for native callers."""

import shutil
import subprocess
import sys
from pathlib import Path

import _lib_nb_sim
import pytest

LIBRARY = _lib_nb_sim.__file__
SOURCES = Path(__file__).parents[3] / "cpp"
COMPILER = shutil.which("c++")

NATIVE_CLASSES = ("ComplexMatrix", "Nimbrel::OpFilter_cuQuantum_Export")

# A library that uses only the engine's headers and exported symbols.
NATIVE_CALLER = """
#include "remote/export_filter.h"
#include "support/complex_matrix.h"

extern "C" bool y_is_unitary() {
    const ComplexMatrix y{{{0, 0}, {0, -1}, {0, 1}, {0, 0}}, 2, 2};
    ComplexMatrix transposed = y.transpose();
    transposed.transpose_in_place();
    return (y * y.conjugate_transpose()).is_identity() && (transposed * y).is_identity();
}

extern "C" void write_table(const char* path) {
    Nimbrel::OpFilter_cuQuantum_Export filter;
    filter.out = std::fopen(path, "w");
    Nimbrel::QPUOp op{};
    op.opcode = 5;
    filter.put_instructions(&op, 1);
}

extern "C" bool is_connected_at_first() {
    Nimbrel::OpFilter_cuQuantum_Export filter;
    std::string status;
    filter.get_status(status);
    return status != R"({"connected":false})";
}
"""

CALLS = """
import ctypes, sys

caller = ctypes.CDLL(sys.argv[1])
caller.y_is_unitary.restype = caller.is_connected_at_first.restype = ctypes.c_bool
caller.write_table(sys.argv[2].encode())
print(caller.y_is_unitary(), caller.is_connected_at_first())
"""


def exported_names() -> list[str]:
    """The library's dynamic symbols, demangled, without arguments."""
    assert LIBRARY is not None
    listing = subprocess.run(
        ["nm", "-D", "-C", "--defined-only", LIBRARY], check=True, capture_output=True, text=True
    )
    return [line.split(maxsplit=2)[2].split("(")[0] for line in listing.stdout.splitlines()]


def belongs_to_native_class(name: str) -> bool:
    described = name.removeprefix("vtable for ").removeprefix("typeinfo for ")
    described = described.removeprefix("typeinfo name for ")
    return any(described == one or name.startswith(f"{one}::") for one in NATIVE_CLASSES)


def test_library_exports_its_entry_and_the_native_classes_and_nothing_else() -> None:
    others = [name for name in exported_names() if not belongs_to_native_class(name)]
    assert others == ["PyInit__lib_nb_sim"]


@pytest.mark.parametrize(
    "name",
    [
        "ComplexMatrix::is_identity",
        "ComplexMatrix::transpose_in_place",
        "ComplexMatrix::operator*",
        "ComplexMatrix::transpose",
        "ComplexMatrix::conjugate_transpose",
        "Nimbrel::OpFilter_cuQuantum_Export::OpFilter_cuQuantum_Export",
        "Nimbrel::OpFilter_cuQuantum_Export::~OpFilter_cuQuantum_Export",
        "Nimbrel::OpFilter_cuQuantum_Export::put_instructions",
        "Nimbrel::OpFilter_cuQuantum_Export::get_status",
        "vtable for Nimbrel::OpFilter_cuQuantum_Export",
        "typeinfo for Nimbrel::OpFilter_cuQuantum_Export",
    ],
)
def test_a_native_class_is_exported_whole(name: str) -> None:
    assert name in exported_names()


@pytest.mark.skipif(COMPILER is None, reason="needs a C++ compiler")
def test_a_native_caller_uses_both_classes(tmp_path: Path) -> None:
    assert COMPILER is not None
    assert LIBRARY is not None
    source, caller, table = (tmp_path / name for name in ("caller.cpp", "caller.so", "table"))
    source.write_text(NATIVE_CALLER)
    subprocess.run(
        [COMPILER, "-std=c++20", "-shared", "-fPIC", "-I", SOURCES, source, LIBRARY, "-o", caller],
        check=True,
    )
    process = subprocess.run(
        [sys.executable, "-c", CALLS, caller, table], check=True, capture_output=True, text=True
    )
    assert process.stdout == "True False\n"
    assert table.read_text() == "0x0000000000000005LL, " + "0x0000000000000000LL, " * 10 + "\n};\n"

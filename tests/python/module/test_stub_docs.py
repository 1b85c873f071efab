"""The stub file is the module's manual: it must describe every function, in the module's order."""

import ast
import re
from pathlib import Path
from types import BuiltinFunctionType

import _lib_nb_sim
import pytest

STUB = Path(__file__).parents[3] / "python" / "_lib_nb_sim-stubs" / "__init__.pyi"
STUB_TREE = ast.parse(STUB.read_text(encoding="utf-8"))
STUB_FUNCTIONS = [node for node in STUB_TREE.body if isinstance(node, ast.FunctionDef)]


# Callers search the manual for the exact text of a message, under the function that raised it.
REFUSALS = [
    (
        "put_instructions",
        "Error: put_instructions array length differs from num_ops argument.",
    ),
    (
        "put_instructions",
        "Error: put_instructions needs contiguous records of 88 bytes: N records need B bytes, "
        "but the array holds A.",
    ),
    (
        "put_instructions",
        "Error: put_instructions needs contiguous records of 88 bytes, but the array's are S "
        "bytes apart.",
    ),
    (
        "fetch_read_result",
        "Error: fetch_read_result() was asked for C read flags, but its result holds 64 at most.",
    ),
]


def module_functions() -> list[str]:
    """Names in the order of the method table, which is the order of the module's dictionary."""
    return [
        name for name, value in vars(_lib_nb_sim).items() if isinstance(value, BuiltinFunctionType)
    ]


def test_module_has_all_its_functions() -> None:
    assert len(module_functions()) == 25


def test_stub_lists_the_functions_in_table_order() -> None:
    assert [function.name for function in STUB_FUNCTIONS] == module_functions()


def test_stub_has_a_module_docstring() -> None:
    assert "RuntimeError" in (ast.get_docstring(STUB_TREE) or "")


@pytest.mark.parametrize("function", STUB_FUNCTIONS, ids=lambda function: function.name)
def test_stub_documents(function: ast.FunctionDef) -> None:
    docstring = ast.get_docstring(function) or ""
    summary, *_ = docstring.splitlines() or [""]
    assert summary.endswith(".")
    assert "Args:" in docstring
    assert "Raises:" in docstring
    assert ("Returns:" in docstring) == (
        ast.unparse(function.returns or ast.Constant(None)) != "None"
    )


@pytest.mark.parametrize("function", STUB_FUNCTIONS, ids=lambda function: function.name)
def test_stub_describes_every_argument(function: ast.FunctionDef) -> None:
    docstring = ast.get_docstring(function) or ""
    undescribed = [
        argument.arg
        for argument in function.args.posonlyargs
        if f"{argument.arg}: " not in docstring
    ]
    assert undescribed == []


@pytest.mark.parametrize(("name", "text"), REFUSALS)
def test_stub_quotes_the_refusal(name: str, text: str) -> None:
    function = next(function for function in STUB_FUNCTIONS if function.name == name)
    docstring = ast.get_docstring(function) or ""
    assert f'"{text}"' in re.sub(r"\s+", " ", docstring)


@pytest.mark.parametrize("function", STUB_FUNCTIONS, ids=lambda function: function.name)
def test_stub_takes_positional_arguments_only(function: ast.FunctionDef) -> None:
    assert function.args.posonlyargs
    assert not function.args.args
    assert not function.args.kwonlyargs
    assert function.args.vararg is None
    assert function.args.kwarg is None

"""The functions of the extension module: their names, arguments and filter handles."""

import subprocess
import sys
import textwrap
import types
from types import ModuleType
from typing import Any

import _lib_nb_sim
import numpy as np
import pytest

from support.driver import PARSE_ERROR, UNKNOWN_HANDLE, raises_engine_error

FUNCTIONS = [
    "pull_state",
    "pull_state_specific",
    "push_state",
    "check_state",
    "override_state_buffer",
    "put_instructions",
    "new_native_filter",
    "delete_native_filter",
    "set_random",
    "normalize",
    "pps",
    "postselect",
    "peek_num_nonzero_terms",
    "peek_n_biggest_terms",
    "peek_value",
    "random_seed",
    "peek_read_probability",
    "fetch_read_result",
    "setup_sim_params",
    "enable_qubit_debugging",
    "finish",
    "connect",
    "disconnect",
    "get_status",
    "get_next_event",
]

AMPLITUDES = np.zeros(4, dtype=np.complex128)
INDICES = np.zeros(4, dtype=np.uint64)
RECORDS = np.zeros((1, 88), dtype=np.uint8)

# For each function that takes a handle: valid arguments after the handle.
AFTER_HANDLE: dict[str, tuple[Any, ...]] = {
    "pull_state": (AMPLITUDES,),
    "pull_state_specific": (AMPLITUDES, 0),
    "push_state": (AMPLITUDES, 0),
    "check_state": (AMPLITUDES, 0.1, 1),
    "override_state_buffer": (AMPLITUDES,),
    "put_instructions": (RECORDS, 1),
    "delete_native_filter": (),
    "set_random": (),
    "normalize": (),
    "pps": (1, 1),
    "postselect": (0, 1),
    "peek_num_nonzero_terms": (),
    "peek_n_biggest_terms": (1, INDICES, AMPLITUDES),
    "peek_value": (0, AMPLITUDES),
    "peek_read_probability": (0, 1, 0.0),
    "fetch_read_result": (0, 1),
    "setup_sim_params": (0, 0, 0, 0, 0, 1, 0),
    "enable_qubit_debugging": (1,),
    "finish": (),
    "connect": ("localhost", 1, 0.1),
    "disconnect": (),
    "get_status": (),
    "get_next_event": (),
}

# Handle 0 never names a filter, so no well-formed call of these does anything.
WELL_FORMED: dict[str, tuple[Any, ...]] = {name: (0, *rest) for name, rest in AFTER_HANDLE.items()}
WELL_FORMED |= {"new_native_filter": ("StreamBitQPU",), "random_seed": (0, 1)}

WRONG_TYPES = [
    pytest.param(name, position, id=f"{name}-{position}")
    for name in FUNCTIONS
    for position in range(len(WELL_FORMED[name]))
]

ARRAY_POSITIONS = [
    pytest.param(name, position, id=f"{name}-{position}")
    for name, arguments in WELL_FORMED.items()
    for position, argument in enumerate(arguments)
    if isinstance(argument, np.ndarray)
]


def run_python(script: str) -> str:
    """Runs a script in an interpreter of its own and returns what it printed."""
    command = [sys.executable, "-c", textwrap.dedent(script)]
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def test_the_module_holds_its_functions_in_table_order_and_nothing_else() -> None:
    assert [name for name in vars(_lib_nb_sim) if not name.startswith("__")] == FUNCTIONS


@pytest.mark.parametrize("name", FUNCTIONS)
def test_every_function_is_a_builtin_without_a_docstring(engine: ModuleType, name: str) -> None:
    function = getattr(engine, name)
    assert isinstance(function, types.BuiltinFunctionType)
    assert function.__name__ == name
    assert not function.__doc__


def test_the_module_is_named_apart_from_its_file(engine: ModuleType) -> None:
    assert engine.__name__ == "libnbsim"
    assert sys.modules["_lib_nb_sim"] is engine
    assert engine.__doc__ is None


def test_a_failure_is_a_result_with_an_error_set(engine: ModuleType) -> None:
    with pytest.raises(SystemError) as caught:
        engine.finish(0)
    assert str(caught.value) == (
        "<built-in function finish> returned a result with an exception set"
    )
    assert type(caught.value.__cause__) is RuntimeError


@pytest.mark.parametrize("name", FUNCTIONS)
def test_an_argument_too_few(engine: ModuleType, name: str) -> None:
    with raises_engine_error(PARSE_ERROR):
        getattr(engine, name)(*WELL_FORMED[name][:-1])


@pytest.mark.parametrize("name", FUNCTIONS)
def test_an_argument_too_many(engine: ModuleType, name: str) -> None:
    with raises_engine_error(PARSE_ERROR):
        getattr(engine, name)(*WELL_FORMED[name], 0)


@pytest.mark.parametrize(("name", "position"), WRONG_TYPES)
def test_an_argument_of_the_wrong_type(engine: ModuleType, name: str, position: int) -> None:
    arguments = list(WELL_FORMED[name])
    arguments[position] = object()
    with raises_engine_error(PARSE_ERROR):
        getattr(engine, name)(*arguments)


@pytest.mark.parametrize(("name", "position"), ARRAY_POSITIONS)
def test_a_list_is_not_an_array(engine: ModuleType, name: str, position: int) -> None:
    arguments = list(WELL_FORMED[name])
    arguments[position] = [0, 0, 0, 0]
    with raises_engine_error(PARSE_ERROR):
        getattr(engine, name)(*arguments)


@pytest.mark.parametrize(
    ("name", "arguments"),
    [
        ("finish", (0.0,)),  # a handle is an integer
        ("fetch_read_result", (0, 2**31, 1)),  # the signed arguments are 32 bits wide
        ("fetch_read_result", (0, -(2**31) - 1, 1)),
        ("check_state", (0, AMPLITUDES, 0.1, 2**31)),
        ("connect", (0, "localhost", 2**31, 0.1)),
        ("connect", (0, "local\0host", 1, 0.1)),
        ("connect", (0, b"localhost", 1, 0.1)),
        ("new_native_filter", ("StreamBitQPU\0",)),
        ("new_native_filter", (b"StreamBitQPU",)),
        ("new_native_filter", (None,)),
    ],
)
def test_values_that_the_formats_do_not_take(
    engine: ModuleType, name: str, arguments: tuple[Any, ...]
) -> None:
    with raises_engine_error(PARSE_ERROR):
        getattr(engine, name)(*arguments)


def test_no_keyword_arguments(engine: ModuleType) -> None:
    with pytest.raises(TypeError, match="takes no keyword arguments"):
        engine.finish(handle=0)


@pytest.mark.parametrize("name", AFTER_HANDLE)
@pytest.mark.parametrize("handle", [0, 2**32 - 1, -1])
def test_an_unknown_handle(engine: ModuleType, name: str, handle: int) -> None:
    with raises_engine_error(UNKNOWN_HANDLE):
        getattr(engine, name)(handle, *AFTER_HANDLE[name])


@pytest.mark.parametrize(("name", "position"), ARRAY_POSITIONS)
def test_the_handle_is_looked_up_before_an_array_is_checked(
    engine: ModuleType, name: str, position: int
) -> None:
    arguments = list(WELL_FORMED[name])
    arguments[position] = np.zeros(3, dtype=np.float32)
    with raises_engine_error(UNKNOWN_HANDLE):
        getattr(engine, name)(*arguments)


def test_a_handle_is_cut_to_32_bits(engine: ModuleType, bit_filter: int) -> None:
    assert engine.normalize(bit_filter + 2**32) == 1.0


def test_random_seed_looks_at_no_handle(engine: ModuleType) -> None:
    assert engine.random_seed(2**32 - 1, 5) is None
    assert engine.random_seed(0, 0) is None


@pytest.mark.parametrize(
    "name", ["Nonsense", "", "streambitqpu", "StreamBitQPU ", "StreamCuQuantumQPU", "Größe"]
)
def test_an_unknown_filter_type(engine: ModuleType, name: str) -> None:
    with raises_engine_error(f"Error: Unknown Filter type: {name}"):
        engine.new_native_filter(name)


def test_handles_start_at_1_and_are_never_given_twice() -> None:
    script = """
        import _lib_nb_sim as engine
        first = engine.new_native_filter("StreamBitQPU")
        engine.delete_native_filter(first)
        second = engine.new_native_filter("StreamBitQPU")
        try:
            engine.new_native_filter("Nonsense")
        except SystemError:
            pass
        third = engine.new_native_filter("StreamBitQPU")
        engine.delete_native_filter(second)
        print(first, second, third, engine.new_native_filter("StreamBitQPU"))
    """
    assert run_python(script) == "1 2 3 4\n"


def test_a_deleted_filter_is_gone(engine: ModuleType) -> None:
    handle = engine.new_native_filter("StreamBitQPU")
    assert engine.delete_native_filter(handle) is None
    with raises_engine_error(UNKNOWN_HANDLE):
        engine.delete_native_filter(handle)
    with raises_engine_error(UNKNOWN_HANDLE):
        engine.finish(handle)


def test_filters_left_over_do_not_disturb_the_end_of_the_process() -> None:
    script = """
        import _lib_nb_sim as engine
        for _ in range(3):
            engine.new_native_filter("StreamBitQPU")
        print("done")
    """
    assert run_python(script) == "done\n"

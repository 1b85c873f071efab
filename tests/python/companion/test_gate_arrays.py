"""`h.each` and its like against a loop over the builder of one gate."""

from __future__ import annotations

from typing import Any

import nimbrel as nb
import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st

from support.gate_builders import ANGLED, PLAIN

COLUMNS = ("controls", "zeros", "flag")
qubits = st.integers(0, 200)


@st.composite
def columns(draw: st.DrawFn, keywords: tuple[str, ...] = COLUMNS) -> dict[str, Any]:
    """Two lists of targets, and for each keyword a list, one number or nothing."""
    count = draw(st.integers(0, 6))
    lists = st.lists(qubits, min_size=count, max_size=count)
    chosen: dict[str, Any] = {"a": draw(lists), "b": draw(lists)}
    for keyword in keywords:
        form = draw(st.sampled_from(["list", "number", "nothing"]))
        numbers = qubits if keyword != "flag" else st.integers(-(2**63), 2**63 - 1)
        if form == "list":
            chosen[keyword] = draw(st.lists(numbers, min_size=count, max_size=count))
        elif form == "number":
            chosen[keyword] = draw(numbers)
    return chosen


def row(values: Any, index: int) -> Any:
    return values[index] if isinstance(values, list) else values


def looped(build: Any, leading: list[Any], keywords: dict[str, Any], count: int) -> Any:
    """The records of a loop, or its error with the index of the gate."""
    parts = []
    for index in range(count):
        numbers = [row(values, index) for values in leading]
        named = {name: row(values, index) for name, values in keywords.items()}
        try:
            parts.append(build(*numbers, **named))
        except (TypeError, ValueError) as error:
            return type(error), f"gate {index}: {error}"
    return nb.program(*parts).tobytes()


def vectorised(build: Any, leading: list[Any], keywords: dict[str, Any]) -> Any:
    try:
        return build.each(*leading, **keywords).tobytes()
    except (TypeError, ValueError) as error:
        return type(error), str(error)


def assert_like_a_loop(build: Any, leading: list[Any], keywords: dict[str, Any]) -> None:
    expected = looped(build, leading, keywords, len(leading[-1]))
    assert vectorised(build, leading, keywords) == expected
    arrays = [np.array(values) if isinstance(values, list) else values for values in leading]
    if len(leading[-1]):  # an empty array of no type is one of floats
        assert vectorised(build, arrays, keywords) == expected


@pytest.mark.parametrize("build", PLAIN, ids=lambda build: build.__name__)
@given(drawn=columns())
def test_plain_gates(build: Any, drawn: dict[str, Any]) -> None:
    targets = drawn.pop("a")
    drawn.pop("b")
    assert_like_a_loop(build, [targets], drawn)


@pytest.mark.parametrize("build", ANGLED, ids=lambda build: build.__name__)
@given(drawn=columns(), angle=st.floats(-1e3, 1e3))
def test_gates_with_angles(build: Any, drawn: dict[str, Any], angle: float) -> None:
    targets = drawn.pop("a")
    drawn.pop("b")
    assert_like_a_loop(build, [angle, targets], drawn)
    assert_like_a_loop(build, [[angle + k for k in range(len(targets))], targets], drawn)


@given(drawn=columns())
def test_swaps(drawn: dict[str, Any]) -> None:
    a, b = drawn.pop("a"), drawn.pop("b")
    assert_like_a_loop(nb.swap, [a, b], drawn)


@pytest.mark.parametrize(
    ("targets", "keywords"),
    [
        ([1, 2.5], {}),
        ([1, "a"], {}),
        ([3, None], {}),
        ([1, -2, -3], {}),
        ([1, 2], {"controls": [0, -1]}),
        ([1, 2], {"controls": [0, 1], "zeros": [2, 1]}),
        ([1, 2], {"flag": [0, 2**63]}),
        ([1, 2], {"flag": 1.5}),
        ([True, 2**70], {}),
        ([2**62, 5], {"zeros": 2**63}),
    ],
)
def test_unusual_and_wrong_numbers(targets: list[Any], keywords: dict[str, Any]) -> None:
    expected = looped(nb.x, [targets], keywords, len(targets))
    assert vectorised(nb.x, [targets], keywords) == expected


@pytest.mark.parametrize("dtype", [np.int8, np.uint8, np.int32, np.uint64])
def test_integers_of_any_size(dtype: type) -> None:
    targets: Any = np.array([1, 0, 1], dtype=dtype)
    assert nb.x.each(targets).tobytes() == nb.program(nb.x(1), nb.x(0), nb.x(1)).tobytes()


@pytest.mark.parametrize(
    ("arguments", "keywords", "text"),
    [
        ((5,), {}, r"targets must have shape \(n,\), not \(\)"),
        (([[1]],), {}, r"targets must have shape \(n,\), not \(1, 1\)"),
        (([1, 2],), {"controls": [3]}, r"controls must have shape \(2,\), not \(1,\)"),
        (([1, 2],), {"flag": [[3]]}, r"flag must have shape \(2,\), not \(1, 1\)"),
    ],
)
def test_arrays_of_another_shape_are_refused(
    arguments: tuple[Any, ...], keywords: dict[str, Any], text: str
) -> None:
    with pytest.raises(ValueError, match=text):
        nb.x.each(*arguments, **keywords)


def test_angles_of_another_shape_are_refused() -> None:
    with pytest.raises(ValueError, match=r"angles_degrees must have shape \(2,\), not \(3,\)"):
        nb.rx.each([1, 2, 3], [1, 2])


def test_a_wrong_angle_is_refused_with_the_index_of_its_gate() -> None:
    with pytest.raises(TypeError, match="gate 1: "):
        nb.rx.each([1, 1j], [1, 2])


def test_the_arguments_are_not_changed_and_the_result_can_be() -> None:
    targets = np.array([3, 4])
    records = nb.h.each(targets)
    records["target_mask"] = 1
    assert targets.tolist() == [3, 4]
    assert records.flags.c_contiguous
    assert isinstance(records, nb.Program)


def test_builders_of_arrays_tell_what_they_are() -> None:
    for build in (*PLAIN, *ANGLED, nb.swap):
        assert "Raises:" in (build.each.__doc__ or "")
        assert build.each.__qualname__ == f"{build.__name__}.each"

"""Builders write frequent gates without the general steps, and must give the same records.

The arguments of the general steps are the same ones in a list, which only these steps take.
"""

from __future__ import annotations

from collections.abc import Callable
from functools import partial
from typing import Any

import nimbrel as nb
import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st

from support.gate_builders import ANGLED, PLAIN

GATES: dict[str, Any] = {
    **{gate.__name__: gate for gate in PLAIN},
    **{gate.__name__: lambda *a, gate=gate, **k: gate(-22.5, *a, **k) for gate in ANGLED},
}
numbers = st.integers(-3, 130) | st.sampled_from([63, 64, 2**40, True, np.int64(5), 1.0, "1", None])
flags = st.integers(-70, 70) | st.sampled_from(
    [0, 2**63 - 1, 2**63, -(2**63), -(2**63) - 1, 1.0, 2.5, True, np.int16(-4), "2"]
)


def result(call: Callable[[], nb.Program]) -> Any:
    """The bytes of the records, or the error."""
    try:
        return call().tobytes()
    except (TypeError, ValueError) as error:
        return type(error), str(error)


@pytest.mark.parametrize("name", GATES)
@given(target=numbers, control=numbers, flag=flags)
def test_a_number_gives_the_records_and_errors_of_a_list(
    name: str, target: Any, control: Any, flag: Any
) -> None:
    gate = GATES[name]
    assert result(lambda: gate(target)) == result(lambda: gate([target]))
    assert result(lambda: gate(target, flag=flag)) == result(lambda: gate([target], flag=flag))
    for keyword in ("controls", "zeros"):
        one = result(partial(gate, target, flag=flag, **{keyword: control}))
        several = result(partial(gate, [target], flag=flag, **{keyword: [control]}))
        assert one == several


@pytest.mark.parametrize("gate", ANGLED, ids=lambda gate: gate.__name__)
@given(angle=st.floats() | st.sampled_from([3, np.float32(0.1), True, "x", 1j, None, 10**400]))
def test_any_number_is_an_angle(gate: Callable[..., nb.Program], angle: Any) -> None:
    def outcome(target: Any) -> Any:
        try:
            return gate(angle, target, controls=1).tobytes()
        except (TypeError, ValueError, OverflowError) as error:
            return type(error), str(error)

    assert outcome(3) == outcome([3])


@pytest.mark.parametrize("name", GATES)
def test_a_result_can_be_changed_and_later_results_do_not_show_it(name: str) -> None:
    gate = GATES[name]
    first = gate(3, controls=1)
    expected = first.tobytes()
    first["target_mask"] = 77
    first["cond_flag"] = -1
    assert gate(3, controls=1).tobytes() == expected
    assert first["target_mask"].tolist() == [77]


def test_a_joined_program_does_not_share_memory_with_its_parts() -> None:
    part = nb.h(0)
    joined = nb.program(part, nb.x(1))
    part["target_mask"] = 2
    assert joined["target_mask"].tolist() == [1, 2]
    joined["target_mask"] = 8
    assert part["target_mask"].tolist() == [2]

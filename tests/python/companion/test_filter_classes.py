"""`Simulator(type)` has the class of that filter type, which lacks operations of other types."""

from __future__ import annotations

import pickle
from collections.abc import Callable
from typing import TYPE_CHECKING, Any

import nimbrel as nb
import numpy as np
import pytest
from nimbrel import (
    BitSimulator,
    CliffordSimulator,
    DenseSimulator,
    RemoteSimulator,
    Simulator,
    SparseSimulator,
)

if TYPE_CHECKING:
    from typing_extensions import assert_type

CLASSES: dict[str, type[Simulator]] = {
    "StreamQPU": DenseSimulator,
    "StreamSparseQPU": SparseSimulator,
    "StreamBitQPU": BitSimulator,
    "StreamCliffordQPU": CliffordSimulator,
    "StreamConnect": RemoteSimulator,
}
# For each operation that not all filter types have: the types that have it.
DENSE, SPARSE, BIT, CLIFFORD, CONNECT = CLASSES
OWNERS: dict[str, tuple[str, ...]] = {
    **dict.fromkeys(["terms", "push_state", "check_state", "biggest"], (DENSE, SPARSE)),
    **dict.fromkeys(["value_of", "normalize", "probabilities", "sample"], (DENSE, SPARSE)),
    **dict.fromkeys(["state", "state_of", "set_random", "pauli_probability"], (DENSE,)),
    "override_state_buffer": (DENSE,),
    "num_stored_terms": (SPARSE,),
    "bits": (BIT,),
    **dict.fromkeys(["generators", "destabilizers"], (CLIFFORD,)),
    **dict.fromkeys(["connect", "disconnect", "connected", "fetch"], (CONNECT,)),
}


@pytest.mark.parametrize("filter_type", CLASSES)
def test_a_type_name_chooses_the_class(filter_type: str) -> None:
    with Simulator(filter_type, verbose=0) as sim:
        assert type(sim) is CLASSES[filter_type]
        assert isinstance(sim, Simulator)


@pytest.mark.parametrize("filter_type", CLASSES)
def test_a_class_is_called_by_its_own_name(filter_type: str) -> None:
    simulator: Any = CLASSES[filter_type]
    for arguments in ((), (filter_type,)):
        with simulator(*arguments, check_qubits=False, verbose=0) as sim:
            assert repr(sim) == f'<{simulator.__name__} "{filter_type}", handle {sim.handle}>'


def test_without_a_name_it_is_a_bit_filter() -> None:
    with Simulator() as sim:
        assert type(sim) is BitSimulator


def test_a_class_refuses_the_name_of_another() -> None:
    text = r'^DenseSimulator is a class of "StreamQPU" filters, not of \'StreamBitQPU\' ones$'
    with pytest.raises(ValueError, match=text):
        DenseSimulator("StreamBitQPU")


@pytest.mark.parametrize("name", OWNERS)
@pytest.mark.parametrize("filter_type", CLASSES)
def test_a_filter_has_its_own_operations_alone(filter_type: str, name: str) -> None:
    with Simulator(filter_type) as sim:
        assert (name in dir(sim)) is (filter_type in OWNERS[name])
        if filter_type in OWNERS[name]:
            assert hasattr(sim, name)
            return
        owners = " and ".join(f'"{owner}"' for owner in OWNERS[name])
        text = (
            f"^a \"{filter_type}\" filter has no operation '{name}'; only {owners} filters have it"
        )
        with pytest.raises(AttributeError, match=text):
            getattr(sim, name)


def test_the_door_itself_has_no_such_operation() -> None:
    text = "^Simulator has no operation 'bits'; only \"StreamBitQPU\" filters have it$"
    with pytest.raises(AttributeError, match=text):
        getattr(Simulator, "bits")  # noqa: B009


@pytest.mark.parametrize("name", ["rnu", "_call_engine", "__array__"])
def test_a_name_that_no_filter_has_is_pythons_own_error(name: str) -> None:
    text = f"^'BitSimulator' object has no attribute '{name}'$"
    with BitSimulator() as sim, pytest.raises(AttributeError, match=text):
        getattr(sim, name)


class Counting(DenseSimulator):
    """A subclass with additional arguments."""

    def __init__(self, num_qubits: int) -> None:
        super().__init__(max_num_threads=1)
        self.runs = 0
        self.run(nb.reset(num_qubits))

    def run(self, *parts: nb.RecordArray) -> None:
        self.runs += 1
        super().run(*parts)


def test_a_subclass_derives_from_the_class_of_a_filter_type() -> None:
    with Counting(3) as sim:
        sim.run(nb.x(1))
        assert np.flatnonzero(sim.state()).tolist() == [2]
        assert sim.runs == 2


def test_a_subclass_of_simulator_itself_is_refused() -> None:
    class Direct(Simulator):
        pass

    text = r"^Direct must derive from the class of a filter type, such as DenseSimulator, and not "
    with pytest.raises(TypeError, match=text):
        Direct("StreamQPU")


@pytest.mark.parametrize("filter_type", CLASSES)
def test_no_class_can_be_copied(filter_type: str) -> None:
    name = CLASSES[filter_type].__name__
    with (
        Simulator(filter_type) as sim,
        pytest.raises(TypeError, match=f"^a {name} cannot be copied or pickled"),
    ):
        pickle.dumps(sim)


@pytest.mark.parametrize("filter_type", CLASSES)
def test_options_reach_every_class(filter_type: str) -> None:
    simulator: Callable[..., Simulator] = Simulator
    with pytest.raises(TypeError, match="threads"):
        simulator(filter_type, threads=1)
    with pytest.raises(ValueError, match="unsigned 32-bit number, not 4294967296"):
        simulator(filter_type, max_num_threads=2**32)
    with simulator(filter_type, check_qubits=False, allow_inexact_controls=True, async_=0) as sim:
        assert sim.flags(2, 1) == 0


if TYPE_CHECKING:

    def types_that_a_checker_sees(name: str) -> None:
        assert_type(Simulator("StreamQPU"), DenseSimulator)
        assert_type(Simulator("StreamSparseQPU", check_qubits=False), SparseSimulator)
        assert_type(Simulator("StreamBitQPU", verbose=1), BitSimulator)
        assert_type(Simulator(), BitSimulator)
        assert_type(Simulator("StreamCliffordQPU", allow_inexact_controls=True), CliffordSimulator)
        assert_type(Simulator("StreamConnect"), RemoteSimulator)
        assert_type(Simulator(name), Simulator)
        assert_type(DenseSimulator(max_num_threads=1), DenseSimulator)
        assert_type(RemoteSimulator(), RemoteSimulator)
        assert_type(Counting(3), Counting)

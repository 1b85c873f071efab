"""Tableaus and Pauli strings of Stim and of the engine, both ways."""

from __future__ import annotations

import nimbrel as nb
import pytest

from support.stim_circuits import nimbrel_stim, stim
from support.stim_states import canonical_of


def state_of(tableau: object) -> list[str]:
    simulator = stim.TableauSimulator()
    simulator.set_inverse_tableau(tableau.inverse())  # type: ignore[attr-defined]
    return canonical_of(simulator)


@pytest.mark.parametrize("num_qubits", [1, 2, 5, 20, 64])
def test_a_tableau_comes_back_as_the_same_state(num_qubits: int) -> None:
    circuit = stim.Tableau.random(num_qubits).to_circuit("elimination")
    tableau = circuit.to_tableau() if circuit.num_qubits == num_qubits else stim.Tableau(num_qubits)
    with nb.CliffordSimulator() as sim:
        sim.run(nimbrel_stim.from_tableau(tableau))
        again = nimbrel_stim.to_tableau(sim)
    assert state_of(again) == state_of(tableau)


def test_generators_come_back_as_the_same_state() -> None:
    strings = [stim.PauliString(text) for text in ("-XXX", "+ZZ_", "-_ZZ")]
    with nb.CliffordSimulator() as sim:
        sim.run(nimbrel_stim.from_pauli_strings(strings))
        found = nimbrel_stim.pauli_strings(sim)
    both = [stim.TableauSimulator() for _ in range(2)]
    for simulator, generators in zip(both, (strings, found), strict=True):
        simulator.set_state_from_stabilizers(generators)
    assert canonical_of(both[0]) == canonical_of(both[1])


def test_generators_that_do_not_commute_are_refused() -> None:
    with pytest.raises(ValueError, match="commut"):
        nimbrel_stim.from_pauli_strings([stim.PauliString("X_"), stim.PauliString("ZZ")])


def test_a_register_whose_tableau_is_not_printed_whole_is_refused() -> None:
    with nb.CliffordSimulator() as sim:
        sim.run(nb.reset(70), nb.h(0))
        with pytest.raises(ValueError, match="only a part of a tableau of 70 qubits"):
            nimbrel_stim.to_tableau(sim)


def test_a_pauli_string_becomes_the_arguments_of_a_measurement() -> None:
    xs, zs, sign = nimbrel_stim.qubits_of(stim.PauliString("-X_YZ"))
    assert (xs, zs, sign) == ([0, 2], [2, 3], -1)
    with nb.CliffordSimulator() as sim:
        sim.run(nb.reset(4), nb.ppm(xs, zs, 2, sign=sign), nb.ppm(xs, zs, 3, sign=sign))
        assert sim.flags(2, 2) in (0, 3)


def test_a_pauli_string_becomes_an_observable() -> None:
    observable = nimbrel_stim.observable_of(stim.PauliString("-Z_X"))
    assert observable == {"XIZ": -1.0}
    assert nb.expectation(nb.program(nb.reset(3), nb.h(2)), observable) == pytest.approx(-1)


def test_an_imaginary_sign_is_refused() -> None:
    with pytest.raises(ValueError, match=r"^the Pauli string \+iX is not Hermitian$"):
        nimbrel_stim.qubits_of(stim.PauliString("iX"))


def test_a_wide_tableau_comes_back_as_the_same_state() -> None:
    # A random tableau of this size takes seconds, so the gates are few.
    circuit = stim.Circuit("H 0 70\nCX 0 127 70 3 3 64\nS 127 64\nCZ 5 100\nX 101\nI 127")
    tableau = circuit.to_tableau()
    with nb.CliffordSimulator() as sim:
        sim.run(nimbrel_stim.from_tableau(tableau))
        assert state_of(nimbrel_stim.to_tableau(sim)) == state_of(tableau)

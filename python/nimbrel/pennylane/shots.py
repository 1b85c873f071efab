"""Results of measurements with shots: which bases are drawn, and what each result takes from them.

A job is one value to estimate: a measurement process, or one Pauli product of an expectation value.
Jobs whose bases agree on all shared wires form a group, which is drawn once.
"""

from __future__ import annotations

from collections.abc import Callable, Sequence
from dataclasses import dataclass, field
from typing import Any, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.opcodes import Opcode
from nimbrel.pennylane._framework import qml
from nimbrel.pennylane.outcomes import Outcomes, value_result
from nimbrel.pennylane.plan import Plan
from nimbrel.pennylane.rows import Row, pack_rows
from nimbrel.pennylane.translation import decomposed, expand_all
from nimbrel.records import RecordArray

Indices: TypeAlias = npt.NDArray[np.int64]
"""Drawn term indices, shape (shots,)."""

Basis: TypeAlias = dict[int, str]
"""The letter X, Y or Z by the bit of a qubit: the Pauli operator whose eigenbasis is drawn."""

_TO_Z = {
    "X": (Opcode.H,),
    "Y": (Opcode.S_INV, Opcode.H),
    "Z": (),
}


@dataclass
class Group:
    """Jobs that take their values from the same draws.

    `own_gates` are the diagonalizing gates of an observable that is no Pauli product. Such a group
    has one job.
    """

    basis: Basis = field(default_factory=dict)
    own_gates: list[Row] | None = None

    def rotation(self) -> RecordArray:
        """The program that turns the basis into that of Z."""
        if self.own_gates is not None:
            return pack_rows(self.own_gates)
        return pack_rows(
            [
                Row(int(opcode), bit)
                for bit, letter in self.basis.items()
                for opcode in _TO_Z[letter]
            ]
        )

    def admits(self, basis: Basis) -> bool:
        """Whether a job with this basis can share the draws."""
        return self.own_gates is None and all(
            self.basis.get(bit, letter) == letter for bit, letter in basis.items()
        )


@dataclass(frozen=True)
class Draws:
    """What was drawn, in all groups, shot by shot.

    Attributes:
        indices: Term indices for each group, each of shape (shots,).
        outcomes: The outcomes of measurements in the middle of the circuit.
        shots: Number of shots.
    """

    indices: Sequence[Indices]
    outcomes: Outcomes
    shots: int

    def part(self, start: int, stop: int) -> Draws:
        """The draws of some of the shots."""
        return Draws(
            [each[start:stop] for each in self.indices],
            {source: bits[start:stop] for source, bits in self.outcomes.items()},
            max(0, min(stop, self.shots) - start),
        )


Estimate: TypeAlias = Callable[[Draws], Any]


class Jobs:
    """What the measurement processes of a circuit need drawn, and how each gets its result.

    Args:
        processes: The circuit's measurement processes, none of them a classical shadow.
        plan: The circuit's plan.
    """

    def __init__(self, processes: Sequence[Any], plan: Plan) -> None:
        self._plan = plan
        self.groups: list[Group] = []
        self.estimates: list[Estimate] = [self._estimate(process) for process in processes]

    def _estimate(self, process: Any) -> Estimate:
        if process.mv is not None and self._plan.has_measurements:
            return lambda draws: value_result(process, draws.outcomes)
        if isinstance(process, qml.measurements.ExpectationMP) and process.obs is not None:
            return self._expectation(process.obs)
        if process.obs is None:
            return self._process(process, self._group(self._computational(process.wires)))
        basis = self._pauli_basis(process.obs)
        group = self._own_group(process.obs) if basis is None else self._group(basis)
        return self._process(process, group)

    def _expectation(self, obs: Any) -> Estimate:
        sentence = obs.pauli_rep
        if sentence is not None:
            estimates = [
                (float(qml.math.real(coefficient)), self._parity(word))
                for word, coefficient in sentence.items()
            ]
        elif isinstance(obs, (qml.ops.Sum, qml.ops.LinearCombination)):
            estimates = [
                (float(coefficient), self._expectation(term))
                for coefficient, term in zip(*obs.terms(), strict=True)
            ]
        else:
            return self._process(qml.expval(obs), self._own_group(obs))
        return lambda draws: np.float64(
            sum(coefficient * estimate(draws) for coefficient, estimate in estimates)
        )

    def _parity(self, word: Any) -> Estimate:
        basis = {self._plan.places[wire]: letter for wire, letter in word.items()}
        if not basis:
            return lambda _: 1.0
        mask, group = sum(basis), self._group(basis)

        def estimate(draws: Draws) -> float:
            odd = np.bitwise_count(draws.indices[group] & mask) & 1
            return 1.0 - 2.0 * float(odd.mean()) if len(odd) else float("nan")

        return estimate

    def _process(self, process: Any, group: int) -> Estimate:
        wires = process.wires if len(process.wires) else self._plan.wires
        places = [self._plan.places[wire].bit_length() - 1 for wire in wires]

        def estimate(draws: Draws) -> Any:
            samples = draws.indices[group][:, None] >> np.array(places, dtype=np.int64) & 1
            return process.process_samples(samples, wires)

        return estimate

    def _computational(self, wires: Any) -> Basis:
        chosen = wires if len(wires) else self._plan.wires
        return {self._plan.places[wire]: "Z" for wire in chosen}

    def _pauli_basis(self, obs: Any) -> Basis | None:
        sentence = obs.pauli_rep
        if sentence is None or len(sentence) != 1:
            return None
        (word,) = sentence
        # An identity is drawn like Z.
        return self._computational(obs.wires) | {
            self._plan.places[wire]: letter for wire, letter in word.items()
        }

    def _group(self, basis: Basis) -> int:
        for place, group in enumerate(self.groups):
            if group.admits(basis):
                group.basis.update(basis)
                return place
        self.groups.append(Group(dict(basis)))
        return len(self.groups) - 1

    def _own_group(self, obs: Any) -> int:
        with qml.QueuingManager.stop_recording():
            gates = decomposed(obs.diagonalizing_gates())
        self.groups.append(Group(own_gates=expand_all(gates, self._plan.places)))
        return len(self.groups) - 1

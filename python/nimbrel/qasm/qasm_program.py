"""A program that has been read from OpenQASM."""

from __future__ import annotations

from collections.abc import Mapping
from dataclasses import dataclass

from nimbrel.qasm.errors import QasmError
from nimbrel.records import Program
from nimbrel.running.samples import Samples
from nimbrel.running.shots import sample
from nimbrel.simulator import Simulator
from nimbrel.translation.back_jumps import BackJump, sample_with_jumps


@dataclass(frozen=True)
class QasmProgram:
    """A program, and where its qubits and classical bits are.

    Attributes:
        records: The records, shape (n,), with the body of each loop of `back_jumps` once. They
            begin with a reset of the register.
        num_qubits: Qubits of the register.
        qubits: The qubits of each register by its name, in the order of their declaration.
        bits: The read flags of each register of classical bits by its name, bit 0 first, in the
            order of their declaration.
        back_jumps: Jumps back of while loops whose conditions depend on measurements, in the order
            of their positions. A program without any runs in one call; `sample` runs the others.
        loop_place: File, line and column of the first of these loops, or None.
    """

    records: Program
    num_qubits: int
    qubits: Mapping[str, range]
    bits: Mapping[str, range]
    back_jumps: tuple[BackJump, ...] = ()
    loop_place: tuple[str, int, int] | None = None

    @property
    def program(self) -> Program:
        """The records of a program without jumps back, shape (n,).

        Raises:
            QasmError: If a loop jumps back, because the records alone would run it at most once.
        """
        if self.loop_place is not None:
            raise QasmError(
                "the condition of this while loop depends on a measurement, so the program is no "
                "sequence of records; its method sample runs it",
                *self.loop_place,
            )
        return self.records

    @property
    def read_flags(self) -> tuple[int, ...]:
        """The read flags of all classical bits, in ascending order.

        Bit 0 of the register that was declared first has the first flag.
        """
        return tuple(flag for flags in self.bits.values() for flag in flags)

    def sample(
        self,
        shots: int,
        *,
        filter: str | Simulator = "auto",  # noqa: A002 - the name that nimbrel.sample has
        seed: int | None = None,
        progress: bool = False,
    ) -> Samples:
        """Run the program many times and return all classical bits at the end of each run.

        A program with jumps back runs once a shot, and a loop that never ends runs until it is
        interrupted.

        Args:
            shots: Number of runs, 0 or more.
            filter: As for `nimbrel.sample`.
            seed: As for `nimbrel.sample`.
            progress: As for `nimbrel.sample`.

        Returns:
            The outcomes; the columns are `read_flags`.

        Raises:
            ValueError: As `nimbrel.sample`.
            RuntimeError: The engine's error.
            ImportError: As `nimbrel.sample`.
        """
        flags = self.read_flags
        if not self.back_jumps:
            return sample(
                self.records, shots, read_flags=flags, filter=filter, seed=seed, progress=progress
            )
        return sample_with_jumps(
            self.records,
            self.back_jumps,
            flags,
            shots,
            filter=filter,
            seed=seed,
            progress=progress,
        )

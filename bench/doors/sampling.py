"""Time of `nimbrel.sample` and `nimbrel.expectation`, beside Aer's primitives.

The counts and values are compared before anything is timed. Aer's times are those of
`SamplerV2.run(...).result()` and `EstimatorV2.run(...).result()` on a circuit that is not
transpiled. The last rows tell what calls that Ctrl-C can end cost, and how long it takes.
"""

import argparse
import signal
import sys
import time
from collections.abc import Callable
from functools import partial
from typing import Any

import nimbrel as nb
import numpy as np
from nimbrel.bounded_calls import run_in_calls

SHOTS = 1000
SIGMAS = 5
WIDTHS = (4, 12, 20)


def angles(num_qubits: int) -> list[float]:
    """The angles of the circuit in degrees."""
    drawn: list[float] = np.random.default_rng(num_qubits).uniform(0, 180, num_qubits).tolist()
    return drawn


def program(num_qubits: int) -> nb.Program:
    """A rotation of each qubit and a chain of CNOTs."""
    chain = nb.x.each(range(1, num_qubits), controls=range(num_qubits - 1))
    return nb.program(
        nb.reset(num_qubits), nb.ry.each(angles(num_qubits), range(num_qubits)), chain
    )


def observable(num_qubits: int) -> dict[str, float]:
    """A transverse-field Ising model."""

    def label(**letters: str) -> str:
        places = {int(name[1:]): letter for name, letter in letters.items()}
        return "".join(places.get(q, "I") for q in reversed(range(num_qubits)))

    bonds = {label(**{f"q{q}": "Z", f"q{q + 1}": "Z"}): 1.0 for q in range(num_qubits - 1)}
    return bonds | {label(**{f"q{q}": "X"}): 0.5 for q in range(num_qubits)}


def circuit(num_qubits: int, *, measured: bool) -> Any:
    """The same for Aer."""
    from qiskit import QuantumCircuit  # type: ignore[import-untyped,unused-ignore]

    made = QuantumCircuit(num_qubits, num_qubits if measured else 0)
    for qubit, angle in enumerate(angles(num_qubits)):
        made.ry(np.deg2rad(angle), qubit)
    for qubit in range(num_qubits - 1):
        made.cx(qubit, qubit + 1)
    if measured:
        made.measure(range(num_qubits), range(num_qubits))
    return made


def best(call: Callable[[], object], rounds: int) -> float:
    """The least time of a call in seconds."""
    times = []
    for _ in range(rounds):
        start = time.perf_counter()
        call()
        times.append(time.perf_counter() - start)
    return min(times)


def check_counts(ours: dict[str, int], theirs: dict[str, int]) -> None:
    """Leave with an error unless the frequencies of the common outcomes agree."""
    for outcome in {*ours, *theirs}:
        a, b = ours.get(outcome, 0), theirs.get(outcome, 0)
        if abs(a - b) > SIGMAS * np.sqrt(a + b) + SIGMAS:
            sys.exit(f"error: {outcome} came {a} and {b} times")


def beside_aer(rounds: int) -> None:
    """Print the rows of sampling and of expectation values."""
    from qiskit.quantum_info import (  # type: ignore[import-untyped,unused-ignore]
        SparsePauliOp,
    )
    from qiskit_aer.primitives import (  # type: ignore[import-untyped,unused-ignore]
        EstimatorV2,
        SamplerV2,
    )

    print(f"{'milliseconds':34}{'nimbrel':>10}{'Aer':>10}{'ratio':>8}")
    for num_qubits in WIDTHS:
        measured = nb.program(program(num_qubits), nb.read(range(num_qubits), 2))
        theirs = circuit(num_qubits, measured=True)
        sampler = SamplerV2(seed=1)

        def ask_aer(theirs: Any = theirs, sampler: Any = sampler) -> dict[str, int]:
            counts: dict[str, int]
            counts = sampler.run([theirs], shots=SHOTS).result()[0].data.c.get_counts()
            return counts

        def ask_us(measured: nb.Program = measured) -> dict[str, int]:
            return nb.sample(measured, SHOTS).counts()

        check_counts(ask_us(), ask_aer())
        row(f"{SHOTS} shots, {num_qubits} qubits", ask_us, ask_aer, rounds)
    for num_qubits in WIDTHS:
        records, terms = program(num_qubits), observable(num_qubits)
        operator = SparsePauliOp.from_list(list(terms.items()))
        theirs, estimator = circuit(num_qubits, measured=False), EstimatorV2()

        def value_of_aer(
            theirs: Any = theirs, estimator: Any = estimator, operator: Any = operator
        ) -> float:
            return float(estimator.run([(theirs, operator)]).result()[0].data.evs)

        def our_value(records: nb.Program = records, operator: Any = operator) -> float:
            return float(nb.expectation(records, operator))

        if abs(our_value() - value_of_aer()) > 1e-9:
            sys.exit("error: the expectation values differ")
        row(f"{len(terms)} terms, {num_qubits} qubits", our_value, value_of_aer, rounds)


def row(name: str, ours: Callable[[], object], theirs: Callable[[], object], rounds: int) -> None:
    """Print one comparison."""
    a, b = best(ours, rounds), best(theirs, rounds)
    print(f"{name:34}{a * 1e3:10.3f}{b * 1e3:10.3f}{a / b:8.3f}")


def once_a_shot(rounds: int) -> None:
    """Print the time of a shot of a program that runs once a shot."""
    steps = [nb.h(0), nb.read(0, 2), nb.x(1, flag=2), nb.read(1, 3)]
    for filter_ in ("StreamQPU", "StreamCliffordQPU"):
        records = nb.program(nb.reset(2), *steps)

        def run(records: nb.Program = records, filter_: str = filter_) -> nb.Samples:
            return nb.sample(records, 10 * SHOTS, filter=filter_)

        if set(run().counts()) != {"00", "11"}:
            sys.exit("error: the qubits do not agree")
        each = best(run, rounds) / (10 * SHOTS)
        print(f"{'a shot with feed-forward, ' + filter_:50}{each * 1e6:8.2f} microseconds")


def whole_run(simulator: nb.Simulator, records: nb.Program) -> None:
    """One call of the engine."""
    simulator.run(records)
    simulator.finish()


def cut_run(simulator: nb.Simulator, records: nb.Program) -> None:
    """Short calls."""
    run_in_calls(simulator, records)
    simulator.finish()


def interrupted(rounds: int) -> None:
    """Print what short calls cost, and when Ctrl-C takes effect in a program of minutes."""
    for num_qubits, count in ((6, 400_000), (12, 40_000), (20, 400)):
        targets = np.arange(count) % num_qubits
        records = nb.program(nb.reset(num_qubits), nb.ry.each(3.0, targets))
        with nb.Simulator("StreamQPU") as simulator:
            # One after the other, so that a slow spell of the machine falls on both.
            pairs = []
            for _ in range(3 * rounds):
                whole = best(partial(whole_run, simulator, records), 1)
                pairs.append((whole, best(partial(cut_run, simulator, records), 1)))
        whole, cut = (float(np.median(times)) for times in zip(*pairs, strict=True))
        print(
            f"calls that can be interrupted, {num_qubits:2} qubits: {cut / whole:6.3f} of the time"
        )
    layers = nb.program(nb.reset(20), *[nb.h(range(20)), nb.ry(30, range(20))] * 20_000)
    with nb.Simulator("StreamQPU") as simulator:
        signal.setitimer(signal.ITIMER_REAL, 1.0)
        raised: list[float] = []

        def interrupt(*_: object) -> None:
            raise KeyboardInterrupt

        signal.signal(signal.SIGALRM, interrupt)
        start = time.perf_counter()
        try:
            run_in_calls(simulator, layers)
        except KeyboardInterrupt:
            raised.append(time.perf_counter() - start - 1.0)
    print(f"a signal takes effect after {raised[0] * 1e3:.0f} milliseconds")


def main() -> None:
    """Check and measure."""
    parser = argparse.ArgumentParser(description=(__doc__ or "").partition("\n")[0])
    parser.add_argument("--rounds", type=int, default=5)
    rounds: int = parser.parse_args().rounds
    try:
        beside_aer(rounds)
    except ImportError:
        print("Qiskit Aer is not installed and is left out")
    once_a_shot(rounds)
    interrupted(rounds)


if __name__ == "__main__":
    main()

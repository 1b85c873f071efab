"""Prints a program: one readable line, or one row of a table, for each operation.

     0  reset   3 qubits
     1  h       q0
     2  x       q1               controls q0, zeros q2
     3  rx      q2               30 degrees, if flag 5
     4  read    q0-q2            into flags 2 to 4
  5..7  x       q3, q70, q130    controls q1

Extension records are part of the operation behind them, so the last operation above has three
records.
"""

import html
from collections.abc import Iterator, Sequence
from typing import Final, NamedTuple

from nimbrel.batch_positions import batch_position, truncated
from nimbrel.masks import WORD_BITS
from nimbrel.opcodes import Opcode
from nimbrel.record_names import record_name
from nimbrel.records import Record, RecordArray

__all__ = ["disassembly", "html_table"]

_SHOWN: Final = 60
"""Operations of a program that is printed whole."""
_AT_EACH_END: Final = 25

_CHECK_ZERO: Final = 1 << 4
_COLUMNS: Final = ("record", "operation", "qubits", "details")


class _Line(NamedTuple):
    """One operation."""

    place: str
    name: str
    qubits: str
    details: str


def disassembly(program: RecordArray) -> str:
    """A text with one line an operation.

    A long program has only its first and last operations, and a line that tells how many records
    are left out.

    Args:
        program: The program.
    """
    lines = list(_lines(program))
    widths = [max((len(line[column]) for line in lines), default=0) for column in range(3)]
    return "\n".join(
        f"{line.place:>{widths[0]}}  {line.name:<{widths[1]}}  "
        f"{line.qubits:<{widths[2]}}  {line.details}".rstrip()
        for line in lines
    )


def html_table(program: RecordArray) -> str:
    """An HTML table with one row an operation, abbreviated like `disassembly`.

    Args:
        program: The program.
    """
    head = "".join(f"<th>{name}</th>" for name in _COLUMNS)
    rows = "".join(
        "<tr>" + "".join(f"<td>{html.escape(cell)}</td>" for cell in line) + "</tr>"
        for line in _lines(program)
    )
    return f"<table><thead><tr>{head}</tr></thead><tbody>{rows}</tbody></table>"


def _lines(program: RecordArray) -> Iterator[_Line]:
    if len(program) <= _SHOWN:
        yield from _operations(program, 0, len(program))
        return
    # A cut must not part an operation from its extension records.
    first, last = _AT_EACH_END, len(program) - _AT_EACH_END
    while first < last and program["opcode"][first - 1] == Opcode.EXTEND:
        first += 1
    while first < last and program["opcode"][last - 1] == Opcode.EXTEND:
        last -= 1
    yield from _operations(program, 0, first)
    if first < last:
        yield _Line("...", f"{last - first} records", "", "left out")
    yield from _operations(program, last, len(program))


def _operations(program: RecordArray, start: int, stop: int) -> Iterator[_Line]:
    extensions: list[Record] = []
    for index, words in enumerate(program[start:stop].tolist(), start):
        record = Record(*words)
        is_always = record.cond_flag in (0, 1)
        if record.opcode == Opcode.EXTEND and is_always and not _is_last(program, index, stop):
            extensions.append(record)
            continue
        place = f"{index - len(extensions)}..{index}" if extensions else str(index)
        yield _operation(place, record, extensions)
        extensions = []


def _is_last(program: RecordArray, index: int, stop: int) -> bool:
    """Whether no record of this program takes an extension record."""
    if index + 1 >= stop:
        return True
    following = int(program["opcode"][index + 1])
    return following & 0xFF == Opcode.LABEL & 0xFF


def _operation(place: str, record: Record, extensions: Sequence[Record]) -> _Line:
    records = [record, *extensions]
    targets = [(each.target_mask, each.target_offset) for each in records]
    controls = [(each.cond_mask, each.cond_offset) for each in records]
    name = record_name(record.opcode)
    if record.opcode in _PRODUCTS:
        qubits = _product(targets, controls)
        controls = [(record.read_flag & 2**64 - 1, 0)] if record.opcode == Opcode.PPR else []
        negated = [(record.cond_neg_mask, 0)]
    elif record.opcode in _WITHOUT_QUBITS or name.startswith(("0x", "marker")):
        qubits, controls, negated = "", [], []
    else:
        qubits = _ranges(_qubits(targets))
        negated = [(each.cond_neg_mask & each.cond_mask, each.cond_offset) for each in records]
    details = [
        *_details(record, targets, controls),
        *(_controls(controls, negated) if record.opcode not in _WITHOUT_CONTROLS else ()),
        *_condition(record),
    ]
    return _Line(place, name, qubits, ", ".join(details))


_PRODUCTS: Final = (Opcode.PPR, Opcode.PPM, Opcode.PCP)
_ANGLES: Final = (Opcode.PHASE, Opcode.RX, Opcode.RY, Opcode.RZ, Opcode.PPR)
_EVENTS: Final = (Opcode.OPEN_EVENT, Opcode.OPEN_EVENT_2, Opcode.CLOSE_EVENT, Opcode.CLOSE_EVENT_2)
_JUMPS: Final = (Opcode.JUMP_FWD, Opcode.LABEL)
_FETCHES: Final = (Opcode.FETCH_REQUEST, Opcode.FETCH_REPLY)
_BARE: Final = (Opcode.Z_NOP, Opcode.JUMP_BACK, Opcode.JUMP_FAMILY, Opcode.CALLBACK)
_WITHOUT_QUBITS: Final = (
    *(Opcode.RESET, Opcode.FLAG_NAND),
    *(*_EVENTS, *_JUMPS, *_FETCHES, *_BARE),
)
_SETTERS: Final = (Opcode.READ, Opcode.WRITE, Opcode.CLEAR, Opcode.FREE)
_WITHOUT_CONTROLS: Final = (*_WITHOUT_QUBITS, *_SETTERS, Opcode.PPM, Opcode.PCP)
_UNCONDITIONAL: Final = (Opcode.RESET, Opcode.LABEL, *_EVENTS, *_FETCHES, *_BARE)

_Masks = Sequence[tuple[int, int]]


def _details(record: Record, targets: _Masks, controls: _Masks) -> Iterator[str]:
    opcode = record.opcode
    if opcode in _ANGLES:
        yield f"{record.angle:.12g} degrees"
    elif opcode == Opcode.RESET:
        yield f"{record.target_mask} qubits"
    elif opcode == Opcode.WRITE:
        yield f"value {_value(targets, controls)}"
    elif opcode in _JUMPS:
        yield f"{'to ' if opcode == Opcode.JUMP_FWD else ''}label {record.target_mask}"
    elif opcode in _EVENTS:
        yield f"event {record.angle:.20g}"
    elif opcode == Opcode.FLAG_NAND:
        yield _nand(record)
    elif opcode == Opcode.CALLBACK:
        yield f"key {record.read_flag}"
    elif opcode == Opcode.PCP:
        position = batch_position(record.angle)
        yield f"product {position.place} of {position.size}"
    elif opcode == Opcode.FREE and record.cond_mask & _CHECK_ZERO:
        yield f"check, event code {record.read_flag}"
    if opcode in (Opcode.READ, Opcode.WRITE) and record.read_flag:
        yield _flags(record.read_flag, len(_qubits(targets)))
    elif opcode == Opcode.PPM:
        if truncated(record.angle) == -1:
            yield "inverted"
        if record.read_flag:
            yield _flags(record.read_flag, 1)


def _controls(controls: _Masks, negated: _Masks) -> Iterator[str]:
    zeros = _qubits(negated)
    plain = sorted(set(_qubits(controls)) - set(zeros))
    if plain:
        yield f"controls {_ranges(plain)}"
    if zeros:
        yield f"zeros {_ranges(zeros)}"


def _condition(record: Record) -> Iterator[str]:
    flag = record.cond_flag
    if record.opcode in _UNCONDITIONAL or flag in (0, 1):
        return
    if flag == -1:
        yield "never"
    else:
        yield f"if flag {flag}" if flag > 0 else f"if not flag {-flag}"


def _flags(first: int, count: int) -> str:
    return f"into flag {first}" if count == 1 else f"into flags {first} to {first + count - 1}"


def _nand(record: Record) -> str:
    a, b = (word - 2**64 if word >= 2**63 else word for word in record[1:3])
    operands = " and ".join(f"not {-flag}" if flag < 0 else str(flag) for flag in (a, b))
    inner = operands if record.read_flag < 0 else f"not ({operands})"
    return f"flag {abs(record.read_flag)} = {inner}"


def _value(targets: _Masks, values: _Masks) -> str:
    """The written bits, that of the highest qubit first."""
    ones = set(_qubits(values))
    return "".join("01"[qubit in ones] for qubit in reversed(_qubits(targets)))


def _product(xs: _Masks, zs: _Masks) -> str:
    x_qubits, z_qubits = set(_qubits(xs)), set(_qubits(zs))
    letters = dict.fromkeys(x_qubits - z_qubits, "X")
    letters |= dict.fromkeys(z_qubits - x_qubits, "Z")
    letters |= dict.fromkeys(x_qubits & z_qubits, "Y")
    return " ".join(f"{letters[qubit]}{qubit}" for qubit in sorted(letters))


def _qubits(masks: _Masks) -> list[int]:
    return sorted(
        {offset + bit for mask, offset in masks for bit in range(WORD_BITS) if mask >> bit & 1}
    )


def _ranges(qubits: Sequence[int]) -> str:
    """Qubits in ascending order, three or more neighbours as a range."""
    runs: list[list[int]] = []
    for qubit in qubits:
        if runs and runs[-1][-1] == qubit - 1:
            runs[-1].append(qubit)
        else:
            runs.append([qubit])
    texts = [
        f"q{run[0]}-q{run[-1]}" if len(run) > 2 else ", ".join(f"q{qubit}" for qubit in run)
        for run in runs
    ]
    return ", ".join(texts)

"""OpenQASM programs on few qubits from the bytes of a fuzzer's input.

Most are programs of the language; some have a name, a type or a number that does not fit, and some
characters in the wrong place.
"""

from __future__ import annotations

from typing import Final

from byte_reader import ByteReader

_HEADERS: Final = [
    'OPENQASM 3; include "stdgates.inc"; qubit[3] q; qubit p; bit[4] c; int[8] i = 3; '
    "uint[5] u = 9; float f = 0.5; bool b = true; angle[8] a = pi / 3; const int n = 2; "
    "array[int[8], 3] v = {1, 2, 3}; ",
    'include "stdgates.inc"; qubit[3] q; bit[4] c; ',
    "OPENQASM 3.1;\n",
    'OPENQASM 2.0; include "qelib1.inc"; qreg q[3]; creg c[4]; ',
    "OPENQASM 4; ",
    "",
]
_QUBITS: Final = ["q[0]", "q[1]", "q[2]", "p", "q", "q[0:1]", "q[-1]", "q[i]", "q[7]", "$0", "r"]
_GATES: Final = [
    *("x", "y", "z", "h", "s", "sdg", "t", "tdg", "sx", "id", "cx", "cz", "cy", "ch", "swap"),
    *("ccx", "cswap", "rx(f)", "ry(a)", "rz(pi/4)", "p(0.1)", "U(1, 2, 3)", "u2(0, pi)"),
    *("crx(1)", "cp(pi/2)", "gphase(0.3)", "own(0.2)", "CX", "u3(1,2,3)", "rz(1/0)", "barrier"),
]
_MODIFIERS: Final = ["", "", "", "", "ctrl @ ", "negctrl @ ", "inv @ ", "pow(2) @ ", "ctrl(2) @ "]
_MODIFIERS_HOSTILE: Final = ["pow(0.5) @ ", "pow(-1e300) @ ", "ctrl(-1) @ ", "ctrl(n) @ inv @ "]
_NAMES: Final = ["i", "u", "f", "b", "a", "c", "n", "v", "c[0]", "v[1]", "c[1:2]", "w", "k", "q"]
_NUMBERS: Final = [
    *("0", "1", "2", "3", "7", "255", "-1", "0.5", "1e-3", "pi", "tau", "true", "false", '"101"'),
    *("0x1F", "0b101", "0o17", "1_000", "99999999999999999999", "1e400", "1.5im", "10ns", '""'),
]
_BINARY: Final = ["+", "-", "*", "/", "%", "**", "<<", ">>", "&", "|", "^", "==", "!=", "<", "&&"]
_UNARY: Final = ["-", "~", "!"]
_FUNCTIONS: Final = ["sin", "sqrt", "floor", "popcount", "mod", "rotl", "log", "arccos", "sizeof"]
_TYPES: Final = ["int[8]", "uint[3]", "float", "float[32]", "bool", "bit", "bit[4]", "angle[4]"]
_TYPES_HOSTILE: Final = ["int[0]", "int[100000000]", "bit[-1]", "complex", "duration", "int[n]"]
_PIECES: Final = [
    "{",
    "}",
    ";",
    "@",
    "[",
    "/*",
    "//",
    '"',
    "\x00",
    "é",
    "\n",
    "#pragma x\n",
    "@a\n",
]


def program_text(data: ByteReader) -> str:
    """A program."""
    text = data.one_of(_HEADERS)
    for _ in range(24):
        if not data:
            break
        text += _statement(data, 3)
    return text


def _statement(data: ByteReader, depth: int) -> str:
    kinds = (_gate, _gate, _gate, _measure, _assign, _declare, _block, _loop, _other, _noise)
    kind = data.one_of(kinds)
    if depth == 0 and kind in (_block, _loop):
        kind = _gate
    return kind(data, depth)


def _gate(data: ByteReader, _depth: int) -> str:
    modifiers = data.one_of([*_MODIFIERS, *_MODIFIERS, *_MODIFIERS_HOSTILE])
    operands = ", ".join(data.one_of(_QUBITS) for _ in range(1 + data.byte() % 3))
    return f"{modifiers}{data.one_of(_GATES)} {operands};\n"


def _measure(data: ByteReader, _depth: int) -> str:
    qubit = data.one_of(_QUBITS)
    return data.one_of(
        [
            f"{data.one_of(_NAMES)} = measure {qubit};\n",
            f"measure {qubit} -> c[{data.byte() % 5}];\n",
            f"measure {qubit};\n",
            f"reset {qubit};\n",
            f"bit m{data.byte() % 9} = measure {qubit};\n",
        ]
    )


def _expression(data: ByteReader, depth: int) -> str:
    kind = data.byte() % 8
    if depth == 0 or kind < 3:
        return data.one_of([*_NUMBERS, *_NAMES])
    if kind < 6:
        left, right = _expression(data, depth - 1), _expression(data, depth - 1)
        return f"({left} {data.one_of(_BINARY)} {right})"
    if kind == 6:
        return f"{data.one_of(_UNARY)}{_expression(data, depth - 1)}"
    call = data.one_of([*_FUNCTIONS, *_TYPES, "fn", "measure"])
    return f"{call}({_expression(data, depth - 1)}{data.one_of(['', '', ', 2'])})"


def _assign(data: ByteReader, depth: int) -> str:
    operator = data.one_of(["=", "=", "+=", "-=", "*=", "<<=", "^=", "/="])
    return f"{data.one_of(_NAMES)} {operator} {_expression(data, depth)};\n"


def _declare(data: ByteReader, depth: int) -> str:
    name = data.one_of(["w", "k", "i", "m", "q"])
    return data.one_of(
        [
            f"{data.one_of([*_TYPES, *_TYPES, *_TYPES_HOSTILE])} {name} = "
            f"{_expression(data, depth)};\n",
            f"const {data.one_of(_TYPES)} {name} = {_expression(data, depth)};\n",
            f"input {data.one_of(_TYPES)} {name};\n",
            f"output bit[2] {name};\n",
            f"let {name} = {data.one_of(_QUBITS)} ++ {data.one_of(_QUBITS)};\n",
            f"qubit[{_expression(data, 1)}] {name};\n",
            f"gate own(x) y {{ rx(x) y; {data.one_of(['', 'own(x) y;', 'x y;'])} }}\n",
            f"def fn(int[8] x) -> int[8] {{ return {_expression(data, 1)}; }}\n",
            f"array[{data.one_of(_TYPES)}, {data.byte() % 5}] {name};\n",
        ]
    )


def _body(data: ByteReader, depth: int) -> str:
    inside = "".join(_statement(data, depth - 1) for _ in range(data.byte() % 3))
    return f"{{ {inside}{data.one_of(['', '', 'break;', 'continue;', 'end;'])} }}"


def _block(data: ByteReader, depth: int) -> str:
    head = data.one_of(["if", "if", "switch", "box", ""])
    if head == "if":
        other = f" else {_body(data, depth)}" if data.byte() % 2 else ""
        return f"if ({_expression(data, 2)}) {_body(data, depth)}{other}\n"
    if head == "switch":
        cases = f"case {data.byte() % 4}, 9 {_body(data, depth)} default {_body(data, depth)}"
        return f"switch ({data.one_of(_NAMES)}) {{ {cases} }}\n"
    return f"{head} {_body(data, depth)}\n"


def _loop(data: ByteReader, depth: int) -> str:
    if data.byte() % 3 == 0:
        return f"while ({_expression(data, 2)}) {_body(data, depth)}\n"
    numbers = data.one_of(["[0:2]", "[3:-1:0]", "{1, 5}", "[0:n]", "v", "c", "[0:0:1]", "i"])
    return f"for int k in {numbers} {_body(data, depth)}\n"


def _other(data: ByteReader, _depth: int) -> str:
    return data.one_of(
        [
            f"barrier {data.one_of(_QUBITS)};\n",
            f"delay[{data.one_of(_NUMBERS)}] q[0];\n",
            'include "missing.inc";\n',
            'include "stdgates.inc";\n',
            "end;\n",
            "break;\n",
            f"fn({data.one_of(_NUMBERS)});\n",
            "extern other(int) -> int;\n",
            "nop q;\n",
            "return 1;\n",
            "cal { }\n",
            "defcal x $0 { }\n",
            'defcalgrammar "openpulse";\n',
        ]
    )


def _noise(data: ByteReader, _depth: int) -> str:
    return data.one_of([*_PIECES, *_NUMBERS, *_NAMES]) + data.one_of(["", " ", ";"])

"""The engine's source and the companion give the same names to the same opcodes."""

import re
from pathlib import Path

from nimbrel.opcodes import TAG, Opcode

ROOT = next(path for path in Path(__file__).parents if (path / "pyproject.toml").exists())
OPCODES_OF_THE_ENGINE = ROOT / "cpp" / "filter" / "opcodes.h"


def test_engine_and_companion_have_one_name_for_each_opcode() -> None:
    source = OPCODES_OF_THE_ENGINE.read_text(encoding="utf-8")
    rows = re.findall(r"^    OP_(\w+) = opcode_tag \| (0x[0-9A-F]+),$", source, re.MULTILINE)
    engine = {name: TAG << 32 | int(low, 16) for name, low in rows}
    assert engine == {member.name: int(member) for member in Opcode}


def test_engine_and_companion_have_one_tag() -> None:
    source = OPCODES_OF_THE_ENGINE.read_text(encoding="utf-8")
    (tag,) = re.findall(r"opcode_tag = (0x[0-9A-F]+)UL << 32;", source)
    assert int(tag, 16) == TAG

"""A file that claims to hold an array and holds none is refused with its name."""

from __future__ import annotations

import io
from pathlib import Path
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

programs: Any = pytest.importorskip("nimbrel.command.programs")


def stored(array: Any) -> bytes:
    out = io.BytesIO()
    np.save(out, array)
    return out.getvalue()


def archive() -> bytes:
    out = io.BytesIO()
    np.savez(out, program=nb.reset(1))
    return out.getvalue()


RECORDS = stored(np.array(nb.reset(1)))
BROKEN = {
    "a header that does not end": RECORDS.replace(b"}", b" ", 1),
    "a header that is no literal": RECORDS.replace(b"'descr'", b"(descr)"),
    "a shape of too many records": RECORDS.replace(b"(1,)", b"(9e99,)"),
    "an archive": archive(),
    "half an archive": archive()[:60],
    "an array that is cut off": RECORDS[:-1],
    "nothing": b"",
}


@pytest.mark.parametrize("content", BROKEN.values(), ids=BROKEN)
def test_it_is_refused(content: bytes, tmp_path: Path) -> None:
    path = tmp_path / "program.npy"
    path.write_bytes(content)
    with pytest.raises(ValueError, match=r"program\.npy: .") as raised:
        programs.read_program(path)
    assert str(raised.value).startswith(f"{path}: ")


def test_read_flags_far_apart_are_refused_and_not_listed(tmp_path: Path) -> None:
    path = tmp_path / "program.npy"
    np.save(path, np.array(nb.program(nb.reset(1), nb.read(0, 2), nb.read(0, 90_000_000))))
    with pytest.raises(ValueError, match="the read flags 2 to 90000000 are more than 1048576"):
        programs.read_program(path)

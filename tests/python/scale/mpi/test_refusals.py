"""What ranks do not carry out is refused by name, and the state stays as it was."""

from pathlib import Path

from support.mpi import on_ranks

DRIVER = Path(__file__).parent / "drivers" / "refusals.py"


def test_refused_records() -> None:
    found = on_ranks(2, DRIVER)
    assert (found.stdout, found.returncode) == ("all refused\n", 0), found.stderr


def test_three_ranks(tmp_path: Path) -> None:
    program = tmp_path / "three.py"
    program.write_text("import nimbrel.mpi\nnimbrel.mpi.Simulator()\n", encoding="utf-8")
    found = on_ranks(3, program)
    assert found.returncode != 0
    assert "the number of ranks is a power of two, not 3" in found.stderr

"""Seed corpora of the fuzz targets: one packed file a target in tests/fuzz/corpus.

    python tools/fuzz_corpus.py unpack TARGET FOLDER
    python tools/fuzz_corpus.py pack TARGET FOLDER

`unpack` also writes the drawn seeds with which every corpus began, so that a target without a
packed file has something to start from. The packed file of a corpus always has the same bytes.
"""

from __future__ import annotations

import argparse
import hashlib
import io
import random
import tarfile
from pathlib import Path

CORPORA = Path(__file__).parent.parent / "tests" / "fuzz" / "corpus"
SEEDS = 48


def drawn_seeds(target: str) -> list[bytes]:
    """Random inputs. The targets decode any bytes to mostly meaningful calls."""
    generator = random.Random(target)
    return [generator.randbytes(generator.randrange(4, 160)) for _ in range(SEEDS)]


def unpack(target: str, folder: Path) -> None:
    """Write the inputs of a target as files, each named by its contents."""
    folder.mkdir(parents=True, exist_ok=True)
    for seed in drawn_seeds(target):
        (folder / hashlib.sha1(seed).hexdigest()).write_bytes(seed)
    packed = CORPORA / f"{target}.tar.xz"
    if not packed.exists():
        return
    with tarfile.open(packed) as archive:
        for member in archive:
            content = archive.extractfile(member)
            if content is not None:
                (folder / Path(member.name).name).write_bytes(content.read())


def pack(target: str, folder: Path) -> None:
    """Pack the files of a folder."""
    CORPORA.mkdir(parents=True, exist_ok=True)
    with tarfile.open(CORPORA / f"{target}.tar.xz", "w:xz", preset=9) as archive:
        for number, path in enumerate(sorted(folder.iterdir(), key=lambda path: path.read_bytes())):
            content = path.read_bytes()
            member = tarfile.TarInfo(str(number))
            member.size = len(content)
            archive.addfile(member, io.BytesIO(content))


def main() -> None:
    """Run the command line."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("action", choices=["pack", "unpack"])
    parser.add_argument("target")
    parser.add_argument("folder", type=Path)
    arguments = parser.parse_args()
    action = pack if arguments.action == "pack" else unpack
    action(arguments.target, arguments.folder)


if __name__ == "__main__":
    main()

"""What the command `nimbrel info` tells about the machine and the installation."""

from __future__ import annotations

import os
import platform
from importlib.metadata import PackageNotFoundError, version
from pathlib import Path
from typing import Any, Final

import nimbrel
from nimbrel.records import RECORD_FORMAT
from nimbrel.running.available_memory import available_memory

_FEATURES: Final = ("avx", "fma", "popcnt", "avx2", "avx512f", "avx512dq")
_WIDE: Final = frozenset({"avx512f", "avx512dq"})
"""What the engine's 512-bit kernels need. Without one of them it uses the 256-bit ones."""

EXTRAS: Final = {
    "qiskit": ("qiskit",),
    "pennylane": ("pennylane",),
    "qasm": ("openqasm3", "qiskit"),
    "stim": ("stim",),
    "plot": ("matplotlib",),
    "progress": ("tqdm",),
    "command": ("click",),
    "mpi": ("mpi4py",),
}
"""The packages of each extra."""


def facts() -> dict[str, Any]:
    """The facts as an object for JSON. Sizes are in bytes."""
    model, flags = _processor(Path("/proc/cpuinfo"))
    features: list[str] = [name for name in _FEATURES if name in flags]
    return {
        "version": nimbrel.__version__,
        "record_format": RECORD_FORMAT,
        "python": platform.python_version(),
        "numpy": version("numpy"),
        "system": platform.platform(),
        "processor": model,
        "cores": len(os.sched_getaffinity(0)),
        "features": features,
        "kernels": f"{kernel_bits(features)}-bit",
        "memory_available": available_memory(),
        "extras": {extra: _found(packages) for extra, packages in EXTRAS.items()},
    }


def kernel_bits(features: list[str]) -> int:
    """The vector width of the dense filter's kernels on a processor with these features."""
    if "avx" not in features:
        return 128  # only an engine with plain vectors loads there
    return 512 if set(features) >= _WIDE else 256


def _processor(file: Path) -> tuple[str, frozenset[str]]:
    fields: dict[str, str] = {}
    for line in file.read_text(encoding="ascii", errors="replace").splitlines():
        name, _, value = line.partition(":")
        fields.setdefault(name.strip(), value.strip())
    return fields.get("model name", platform.machine()), frozenset(fields.get("flags", "").split())


def _found(packages: tuple[str, ...]) -> dict[str, str] | None:
    """The versions of an extra's packages, or None if one is missing."""
    try:
        return {package: version(package) for package in packages}
    except PackageNotFoundError:
        return None


def facts_text(found: dict[str, Any]) -> str:
    """The facts for people."""
    lines = [
        ("nimbrel", f"{found['version']}, record format {found['record_format']}"),
        ("Python", f"{found['python']}, NumPy {found['numpy']}"),
        ("system", found["system"]),
        ("processor", f"{found['processor']}, {found['cores']} core(s) for this process"),
        ("features", " ".join(found["features"])),
        ("kernels", f"{found['kernels']}, by the processor's features"),
        ("memory", f"{found['memory_available'] / 2**30:.1f} GiB available"),
    ]
    for extra, packages in found["extras"].items():
        versions = ", ".join(f"{name} {number}" for name, number in (packages or {}).items())
        lines.append((extra, versions or f"missing: pip install nimbrel[{extra}]"))
    width = max(len(name) for name, _ in lines)
    return "\n".join(f"{name:<{width}}  {value}" for name, value in lines)

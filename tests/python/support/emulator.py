"""Other processors, as qemu has them; it stops a program at an instruction that they lack."""

import os
import platform
import shutil

import pytest

EMULATOR = shutil.which("qemu-x86_64") or ""

needs_emulator = [
    pytest.mark.skipif(
        platform.machine() != "x86_64", reason="the programs that it runs are for x86-64"
    ),
    pytest.mark.skipif(not EMULATOR, reason="needs qemu-x86_64 of package qemu-user"),
    pytest.mark.skipif(
        "asan" in os.environ.get("LD_PRELOAD", ""),
        reason="the address sanitizer's memory map does not fit into the emulated one",
    ),
]
"""Marks of a module whose tests run a program on another processor."""

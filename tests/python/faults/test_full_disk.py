"""A full disk under what the command writes: an error and not a part that looks whole."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

FULL = "/dev/full"
HERE = Path(__file__).parent

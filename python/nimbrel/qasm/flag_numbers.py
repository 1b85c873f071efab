"""Numbers of read flags in programs that are read from OpenQASM."""

from typing import Final

from nimbrel.translation.boolean_logic import FALSE as FALSE
from nimbrel.translation.boolean_logic import TRUE as TRUE

FIRST_FLAG: Final = 2
"""The lowest read flag that is no constant."""
PROVISIONAL: Final = 1 << 40
"""The first provisional number of a flag."""

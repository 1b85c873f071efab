"""Numbers of read flags in programs that are read from OpenQASM."""

from typing import Final

FIRST_FLAG: Final = 2
"""The lowest read flag that is no constant."""
PROVISIONAL: Final = 1 << 40
"""The first provisional number of a flag."""
TRUE: Final = 1
FALSE: Final = -1
"""The flags that read 1 and 0. The flag -f reads the opposite of the flag f, these too."""

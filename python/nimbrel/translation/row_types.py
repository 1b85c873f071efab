"""Records as tuples, for translations that build and rewrite many of them."""

from typing import Any, TypeAlias

Row: TypeAlias = tuple[Any, ...]
"""The eleven words of a record, in the order of `QPU_OP`. A mask may be wider than a word."""

Rows: TypeAlias = list[Row]

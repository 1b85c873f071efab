"""The error for operations that have no exact translation."""

from __future__ import annotations


class ConversionError(ValueError):
    """A circuit cannot be translated without changing its meaning.

    The text names the operation and its index in `circuit.data`, and for each block that the
    operation lies in, the index in that block:

        operation 4 (if_else), operation 0 (kraus): no definition by gates

    Attributes:
        reason: The text without the operations.
        path: Index and name of each operation, outermost first.
    """

    def __init__(self, reason: str, *path: tuple[int, str]) -> None:
        super().__init__(reason, *path)
        self.reason = reason
        self.path = [*path]

    def inside(self, index: int, name: str) -> None:
        """Note the operation in which the error arose; called from the innermost outwards.

        Args:
            index: Its index in the circuit or block.
            name: Its name.
        """
        self.path.insert(0, (index, name))

    def __str__(self) -> str:
        operations = ", ".join(f"operation {index} ({name})" for index, name in self.path)
        return f"{operations}: {self.reason}" if operations else self.reason

"""The error of a program that cannot be read or written."""


class QasmError(ValueError):
    """A program that is not valid OpenQASM, or that this system cannot carry out.

    Attributes:
        message: What is wrong, without the position.
        file: The name of the file, or "<text>" for a program given as text.
        line: The line, from 1.
        column: The column, from 1.
    """

    def __init__(self, message: str, file: str, line: int, column: int) -> None:
        super().__init__(f"{file}:{line}:{column}: {message}")
        self.message = message
        self.file = file
        self.line = line
        self.column = column

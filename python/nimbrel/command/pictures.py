"""The picture of the command's `--plot`."""

from __future__ import annotations

from pathlib import Path

from nimbrel.command.runs import Result


def save_counts(result: Result, path: Path) -> None:
    """Draw the counts into a file, in the format of its suffix.

    Raises:
        ImportError: If Matplotlib is missing.
        ValueError: If there is no such format.
        OSError: If the file cannot be written.
    """
    import matplotlib as mpl

    import nimbrel.plot  # noqa: F401 - its error says how to install Matplotlib

    # No window is opened, so a machine without a display is enough.
    mpl.use("Agg")
    from matplotlib import pyplot as plt

    from nimbrel.plot import counts

    axes = counts(result.samples)
    axes.set_xlabel(f"outcome ({', '.join(reversed(list(result.registers)))})")
    axes.set_title(result.file.name, fontsize="medium")
    plt.gcf().savefig(path, dpi=200)
    plt.close()

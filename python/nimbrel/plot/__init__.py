"""Pictures of results. Needs the extra "plot": `pip install nimbrel[plot]`.

    from nimbrel import plot

    plot.counts(nimbrel.sample(program, 1000))

Every function draws into the axes that it is given, or into those of a new figure, and returns
them.
"""

try:
    import matplotlib as _matplotlib  # noqa: F401
except ModuleNotFoundError as error:
    raise ImportError("nimbrel.plot needs Matplotlib: pip install nimbrel[plot]") from error

from nimbrel.plot.amplitude_bars import amplitudes
from nimbrel.plot.outcome_bars import counts, probabilities
from nimbrel.plot.term_density import density

__all__ = ["amplitudes", "counts", "density", "probabilities"]

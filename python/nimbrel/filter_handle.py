"""The life of one filter: its parameters, its creation and its end."""

import warnings
import weakref
from collections.abc import Callable
from dataclasses import astuple, dataclass
from types import TracebackType
from typing import NoReturn, TypeVar

import _lib_nb_sim

from nimbrel._engine import _call, _word32

Self = TypeVar("Self", bound="FilterHandle")


@dataclass(frozen=True)
class SimParams:
    """The parameters of a filter, read by it at every reset.

    Attributes:
        num_block_qubits: Index bits inside a block of amplitudes; 0 chooses.
        max_ram_size_gb: Largest state vector, in units of 2**30 bytes; 0 is no limit.
        max_num_threads: Most blocks, each with a thread; 0 is no limit, 1 no threads.
        randomized: Whether a new state is random instead of all qubits 0.
        use_opencl: Stored, without effect.
        async_: Whether worker threads are used.
        verbose: Whether the set-up prints what it decides.
    """

    num_block_qubits: int = 0
    max_ram_size_gb: int = 0
    max_num_threads: int = 0
    randomized: int = 0
    use_opencl: int = 0
    async_: int = 1
    verbose: int = 0


class FilterHandle:
    """One filter of the engine, freed on leaving the `with` block.

    One that is dropped without `close` is freed as well, with a `ResourceWarning`. What is left
    when the interpreter ends is left to the end of the process.

    It can be neither copied nor pickled: a copy would hold the number of a filter that the
    original frees, and in another process that number may name another filter.
    """

    # On the class, for the end of an object whose constructor has not come this far.
    _handle: int | None = None
    _filter_type = ""

    def __init__(self, filter_type: str = "StreamBitQPU", **params: int) -> None:
        """Create the filter.

        Args:
            filter_type: The engine's name of the filter.
            **params: Fields of `SimParams`; those not given keep their defaults.

        Raises:
            TypeError: If a parameter has no such name or is not an integer.
            ValueError: If a parameter does not fit 32 bits.
            RuntimeError: If the engine knows no such filter.
        """
        self._filter_type = filter_type
        values = [_word32(value, "a parameter") for value in astuple(SimParams(**params))]
        self._handle = _call(_lib_nb_sim.new_native_filter, filter_type)
        self._finalizer = weakref.finalize(self, _free, self._handle)
        # Functions that run at exit may still use the filter.
        self._finalizer.atexit = False
        try:
            if params:
                _call(_lib_nb_sim.setup_sim_params, self._handle, *values)
        except BaseException:
            self.close()
            raise

    # Warns here because a finalizer has no object to name. The finalizer frees: it runs once,
    # whether the cycle collector calls it or this method, and never after the interpreter began
    # to end. `warnings.warn` is bound early because module globals may be gone by then.
    def __del__(self, _warn: Callable[..., None] = warnings.warn) -> None:
        """Warn if nobody has closed the simulator, and free its filter."""
        if self._handle is None:
            return
        try:
            _warn(f"unclosed {self!r}", ResourceWarning, stacklevel=2, source=self)
        finally:
            self._handle = None
            self._finalizer()

    def __repr__(self) -> str:
        state = "closed" if self._handle is None else f"handle {self._handle}"
        return f'<{type(self).__name__} "{self._filter_type}", {state}>'

    def __reduce__(self) -> NoReturn:
        """Refuse `pickle`, `copy.copy` and `copy.deepcopy`.

        Raises:
            TypeError: Always.
        """
        raise TypeError(
            f"a {type(self).__name__} cannot be copied or pickled, since its filter belongs to "
            "this process; make another where it is needed and run the program there"
        )

    def __enter__(self: Self) -> Self:
        """Return the simulator itself."""
        return self

    def __exit__(
        self,
        exc_type: type[BaseException] | None,
        exc: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        """Close the simulator."""
        self.close()

    @property
    def handle(self) -> int:
        """The number by which the engine's functions name the filter.

        Raises:
            ValueError: If the simulator is closed.
        """
        return self._open_handle()

    def _open_handle(self) -> int:
        # The package's own way to the handle: reading `handle` may mean calls that it does not see.
        if self._handle is None:
            raise ValueError("the simulator is closed")
        return self._handle

    def close(self) -> None:
        """Free the filter and all it holds; a second call does nothing."""
        if self._handle is not None:
            handle, self._handle = self._handle, None
            self._finalizer.detach()
            _free(handle)


def _free(handle: int) -> None:
    _call(_lib_nb_sim.delete_native_filter, handle)

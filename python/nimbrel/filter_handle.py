"""The lifetime of one filter: its parameters, its creation and its destruction."""

import warnings
import weakref
from collections.abc import Callable
from dataclasses import astuple, dataclass
from types import TracebackType
from typing import NoReturn, TypeVar

import _lib_nb_sim

from nimbrel._engine import call, word32

Self = TypeVar("Self", bound="FilterHandle")


@dataclass(frozen=True)
class SimParams:
    """The parameters of a filter. A dense filter reads them at every reset.

    Attributes:
        num_block_qubits: Index bits inside a block of amplitudes; 0 lets the engine choose.
        max_ram_size_gb: Largest state vector, in units of 2**30 bytes; 0 means no limit.
        max_num_threads: Largest number of blocks, each with a thread; 0 means no limit, 1 means
            no threads.
        randomized: Not 0: a new state is random. 0: every qubit of a new state is 0.
        use_opencl: Stored, without effect.
        async_: Not 0: the filter uses worker threads.
        verbose: Not 0: the set-up prints what it decides.
    """

    num_block_qubits: int = 0
    max_ram_size_gb: int = 0
    max_num_threads: int = 0
    randomized: int = 0
    use_opencl: int = 0
    async_: int = 1
    verbose: int = 0


class FilterHandle:
    """Owns one filter of the engine and frees it at the end of a `with` block.

    An object that is dropped without `close` frees its filter too, with a `ResourceWarning`. At
    the end of the interpreter the filters that remain are left to the end of the process.

    An object can be neither copied nor pickled. A copy would hold the number of a filter that the
    original frees, and in another process that number may name another filter.
    """

    # Class attributes, because `__del__` also runs when `__init__` has failed early.
    _handle: int | None = None
    _filter_type: str = ""

    def __init__(self, filter_type: str, params: dict[str, int]) -> None:
        """Create the filter.

        Args:
            filter_type: The engine's name of the filter type.
            params: Fields of `SimParams`; the other fields keep their defaults.

        Raises:
            TypeError: If there is no parameter of that name, or a value is not an integer.
            ValueError: If a value does not fit 32 bits.
            RuntimeError: If the engine has no such filter type.
        """
        self._filter_type = filter_type
        values = [word32(value, "a parameter") for value in astuple(SimParams(**params))]
        self._randomized = bool(params.get("randomized"))
        self._handle = call(_lib_nb_sim.new_native_filter, filter_type)
        self._finalizer = weakref.finalize(self, _free, self._handle)
        # Exit handlers of the caller may still use the filter.
        self._finalizer.atexit = False
        try:
            if params:
                call(_lib_nb_sim.setup_sim_params, self._handle, *values)
        except BaseException:
            self.close()
            raise

    # The warning is issued here, because a finalizer has no object to name. The finalizer frees
    # the filter: it runs once, whether the cycle collector or this method calls it, and never
    # after the interpreter has begun to end. `warnings.warn` is bound as a default argument,
    # because module globals may be gone by then.
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

    def close(self) -> None:
        """Free the filter and all its memory. A second call does nothing."""
        if self._handle is not None:
            handle, self._handle = self._handle, None
            self._finalizer.detach()
            _free(handle)

    def _require_open(self) -> int:
        """Return the filter's number in the engine, for calls that this package makes.

        Raises:
            ValueError: If the simulator is closed.
        """
        if self._handle is None:
            raise ValueError("the simulator is closed")
        return self._handle


def _free(handle: int) -> None:
    call(_lib_nb_sim.delete_native_filter, handle)

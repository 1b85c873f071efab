"""`Simulator`, which creates a filter by its type name, and the base of the filter types' classes.

Simulator("StreamQPU")          DenseSimulator     nimbrel.dense
Simulator("StreamSparseQPU")    SparseSimulator    nimbrel.sparse
Simulator("StreamBitQPU")       BitSimulator       nimbrel.bit
Simulator("StreamCliffordQPU")  CliffordSimulator  nimbrel.clifford
Simulator("StreamConnect")      RemoteSimulator    nimbrel.remote
"""

from __future__ import annotations

from inspect import getattr_static
from typing import TYPE_CHECKING, Any, ClassVar, Final, Literal, NoReturn, TypeVar, overload

from nimbrel.operations import FilterOperations

if TYPE_CHECKING:
    from nimbrel.bit import BitSimulator
    from nimbrel.clifford import CliffordSimulator
    from nimbrel.dense import DenseSimulator
    from nimbrel.remote import RemoteSimulator
    from nimbrel.sparse import SparseSimulator

_DEFAULT_TYPE: Final = "StreamBitQPU"

Self = TypeVar("Self", bound="FilterSimulator")


class Simulator(FilterOperations):
    """One filter of the engine, freed at the end of the `with` block.

        with Simulator("StreamBitQPU") as sim:
            sim.run(reset(100), x([3, 70]), read(range(100), 2))
            value = sim.flags(2, 100)

    `Simulator(filter_type)` returns an object of the class of that filter type, which adds the
    operations that only this type has: `DenseSimulator`, `SparseSimulator`, `BitSimulator`,
    `CliffordSimulator` or `RemoteSimulator`. Each class is a subclass of `Simulator` and can also
    be called by its own name: `DenseSimulator()` is `Simulator("StreamQPU")`. An operation that a
    filter type lacks is an `AttributeError` that names the filter types that have it. A subclass
    of your own derives from the class of a filter type.

    After `close`, every method raises `ValueError`. If the engine reports a failure, a method
    raises `RuntimeError` with the engine's text.

    Args:
        filter_type: The engine's name of the filter type.
        check_qubits: Whether `run` refuses qubits outside the register. Without this check a
            dense or a sparse filter ignores such qubits. The check of a program of up to 64
            records takes 3 to 10 microseconds, or about 0.5 if the same program has passed
            before. From 1,000 records on, it takes 5 to 20 nanoseconds a record, and up to 45 for
            a Z on one control of a Clifford filter. A "StreamConnect" filter checks no qubits.
        allow_inexact_controls: Whether `run` passes controlled Z and negated controls to a
            Clifford filter. That filter omits the sign of a controlled Z and treats a negated
            control as a control.
        **params: Fields of `SimParams`; the other fields keep their defaults.

    Raises:
        TypeError: If there is no parameter of that name, or a value is not an integer.
        ValueError: If a value does not fit 32 bits.
        RuntimeError: If the engine has no such filter type.
    """

    _instead: ClassVar[dict[str, str]] = {}
    """What to use instead of an operation that this filter type lacks, by the operation's name."""

    if TYPE_CHECKING:

        @overload
        def __new__(  # pyright: ignore[reportOverlappingOverload] - the modules import each other
            cls,
            filter_type: Literal["StreamQPU"],
            *,
            check_qubits: bool = ...,
            allow_inexact_controls: bool = ...,
            **params: int,
        ) -> DenseSimulator: ...
        @overload
        def __new__(
            cls,
            filter_type: Literal["StreamSparseQPU"],
            *,
            check_qubits: bool = ...,
            allow_inexact_controls: bool = ...,
            **params: int,
        ) -> SparseSimulator: ...
        @overload
        def __new__(
            cls,
            filter_type: Literal["StreamBitQPU"] = ...,
            *,
            check_qubits: bool = ...,
            allow_inexact_controls: bool = ...,
            **params: int,
        ) -> BitSimulator: ...
        @overload
        def __new__(
            cls,
            filter_type: Literal["StreamCliffordQPU"],
            *,
            check_qubits: bool = ...,
            allow_inexact_controls: bool = ...,
            **params: int,
        ) -> CliffordSimulator: ...
        @overload
        def __new__(
            cls,
            filter_type: Literal["StreamConnect"],
            *,
            check_qubits: bool = ...,
            allow_inexact_controls: bool = ...,
            **params: int,
        ) -> RemoteSimulator: ...
        @overload
        def __new__(
            cls,
            filter_type: str,
            *,
            check_qubits: bool = ...,
            allow_inexact_controls: bool = ...,
            **params: int,
        ) -> Simulator: ...

    def __new__(
        cls,
        filter_type: str = _DEFAULT_TYPE,
        *,
        check_qubits: bool = True,  # noqa: ARG004 - read by __init__, as all that follow
        allow_inexact_controls: bool = False,  # noqa: ARG004
        **params: int,  # noqa: ARG004
    ) -> Any:
        """Choose the class by the filter type. A name without a class is left to the engine."""
        if cls is not Simulator:
            raise TypeError(
                f"{cls.__name__} must derive from the class of a filter type, such as "
                "DenseSimulator, and not from Simulator"
            )
        # `str`, because the engine reports an argument of another type.
        return object.__new__(_filter_classes.get(str(filter_type), cls))

    def __dir__(self) -> list[str]:
        """The names of this filter type's attributes, without the operations of other types."""
        return [
            name
            for name in super().__dir__()
            if not isinstance(getattr_static(self, name, None), _MissingOperation)
        ]


_filter_classes: dict[str, type[FilterSimulator]] = {}


class _MissingOperation:
    """An operation of some filter types, as an attribute of the classes of the other types.

    `Simulator` has one for each such operation. The class of a filter type that has the operation
    overrides it. `__getattr__` would do the same, but it slows every attribute access of a
    simulator in Python 3.10 and 3.11.

    Attributes:
        owners: The filter types that have the operation.
    """

    def __init__(self, name: str) -> None:
        self._name = name
        self.owners: list[str] = []

    def __get__(self, instance: Simulator | None, owner: type[Simulator]) -> NoReturn:
        """Report that this filter type lacks the operation.

        Raises:
            AttributeError: Always.
        """
        subject = f'a "{owner._filter_type}" filter' if owner._filter_type else owner.__name__
        owners = " and ".join(f'"{each}"' for each in self.owners)
        advice = f"; {owner._instead[self._name]}" if self._name in owner._instead else ""
        raise AttributeError(
            f"{subject} has no operation {self._name!r}; only {owners} filters have it{advice}",
            name=self._name,
            obj=instance,
        )


def _missing_operation(name: str) -> _MissingOperation:
    """Return the attribute of `Simulator` for an operation of some filter types."""
    if name not in vars(Simulator):
        setattr(Simulator, name, _MissingOperation(name))
    missing: _MissingOperation = vars(Simulator)[name]
    return missing


class FilterSimulator(Simulator):
    """Base of the classes of one filter type each.

    A class names its filter type when it derives: `class BitSimulator(FilterSimulator,
    filter_type="StreamBitQPU")`. A class that derives from such a class keeps its filter type.
    """

    def __init_subclass__(cls, *, filter_type: str | None = None, **kwargs: Any) -> None:
        """Enter the class of a filter type, so that `Simulator` finds it."""
        super().__init_subclass__(**kwargs)
        if filter_type is not None:
            cls._filter_type = filter_type
            _filter_classes[filter_type] = cls
            for name in vars(cls):
                if not name.startswith("_") and not hasattr(FilterOperations, name):
                    _missing_operation(name).owners.append(filter_type)

    def __new__(cls: type[Self], *_args: object, **_kwargs: object) -> Self:
        """Create an object of the class that is called. `__init__` takes the arguments."""
        return object.__new__(cls)

    def __init__(
        self,
        filter_type: str | None = None,
        *,
        check_qubits: bool = True,
        allow_inexact_controls: bool = False,
        **params: int,
    ) -> None:
        """Create the filter; see `Simulator`.

        Args:
            filter_type: The filter type of this class, which is also the default.
            check_qubits: As for `Simulator`.
            allow_inexact_controls: As for `Simulator`.
            **params: As for `Simulator`.

        Raises:
            TypeError: As `Simulator`.
            ValueError: As `Simulator`, or if `filter_type` is another filter type.
        """
        if filter_type not in (None, self._filter_type):
            raise ValueError(
                f'{type(self).__name__} is a class of "{self._filter_type}" filters, '
                f"not of {filter_type!r} ones"
            )
        super().__init__(
            self._filter_type,
            check_qubits=check_qubits,
            allow_inexact_controls=allow_inexact_controls,
            **params,
        )

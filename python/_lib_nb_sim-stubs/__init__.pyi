"""The native engine: filters that consume streams of 88-byte instruction records.

Names. A filter is named by its handle, a positive integer from `new_native_filter`. Qubit 0 is the
least significant bit of every mask, index and value.

Numbers. Every unsigned argument (handles, counts, masks, values) is cut to its low 32 bits without
a word. Masks given as arguments therefore reach qubits 0 to 31; masks inside records have 64 bits
and an offset.

Arrays. "Complex array" means dtype complex128 whose first stride is 16 bytes, so in practice a
contiguous one that is not empty: NumPy gives a new empty array a stride of 0. An array's length is
its first dimension. Arrays are read and written in place and never kept, but for
`override_state_buffer`.

Errors. Every failure sets a RuntimeError with the message and returns None all the same. The
interpreter reports such a call as a SystemError, whose `__cause__` is the RuntimeError. "Raises"
below names that RuntimeError. Each function fails with "Error: argument parsing error." on
arguments of the wrong number or type, and each that looks up a handle fails with
"Error: native filter not found." when no filter has it.

Locking. The interpreter lock is held during every call, however long it takes.
"""

from typing import Any, SupportsFloat, SupportsIndex

import numpy as np
from numpy.typing import NDArray

def pull_state(handle: SupportsIndex, dest: NDArray[np.complex128], /) -> str:
    """Copies the whole state out.

    Args:
        handle: The filter.
        dest: Complex array for the amplitudes, in order of their index. The bit filter leaves it
            as it is; an array of length 1 will do.

    Returns:
        The filter's text about its state. From the bit filter: one character "0" or "1" for each
        qubit, qubit 0 first.

    Raises:
        RuntimeError: `dest` is not a complex array ("Error: pull_state() dest buffer must be an
            array of type complex128"); no reset record has run; or the filter has no state to give
            ("Error: no QPU data for qc.pull_state()").
    """

def pull_state_specific(
    handle: SupportsIndex, dest: NDArray[np.complex128], selector: SupportsIndex, /
) -> str:
    """Copies the amplitudes out that a selector picks.

    Args:
        handle: The filter.
        dest: Complex array for the amplitudes.
        selector: Which amplitudes; the meaning is the filter's own.

    Returns:
        The filter's text about its state, which may be empty.

    Raises:
        RuntimeError: `dest` is not a complex array (with the text of `pull_state`); or the filter
            has no such operation, as the bit filter ("Error: no QPU data for
            qc.pull_state_specific()").
    """

def push_state(
    handle: SupportsIndex, source: NDArray[np.complex128], selector: SupportsIndex, /
) -> None:
    """Replaces the state by amplitudes from an array.

    Args:
        handle: The filter.
        source: Complex array of amplitudes, in order of their index.
        selector: Which amplitudes; the meaning is the filter's own.

    Raises:
        RuntimeError: `source` is not a complex array ("Error: push_state() dest buffer must be an
            array of type complex128"); or the filter takes no state. The bit filter says
            "qc.push_state() has not been implemented for the Clifford sim.", other filters
            "Error: no QPU data for qc.push_state()".
    """

def check_state(
    handle: SupportsIndex,
    expected: NDArray[np.complex128],
    tolerance: SupportsFloat,
    flag: SupportsIndex,
    /,
) -> int:
    """Compares the state with expected amplitudes.

    Args:
        handle: The filter.
        expected: Complex array of amplitudes, in order of their index.
        tolerance: Largest difference allowed in a real or an imaginary part.
        flag: Handed to the filter as on (non-zero) or off; a signed 32-bit number.

    Returns:
        1 when the state agrees, else 0. A filter without amplitudes, as the bit filter, answers 1
        without a look.

    Raises:
        RuntimeError: `expected` is not a complex array (with the text of `push_state`).
    """

def override_state_buffer(handle: SupportsIndex, buffer: NDArray[np.complex128], /) -> None:
    """Makes the filter keep its amplitudes in the caller's memory.

    Args:
        handle: The filter.
        buffer: Complex array of 2**n elements, aligned to 32 bytes. Lengths 0, 1 and 2 all stand
            for one qubit. The caller keeps it alive as long as the filter uses it.

    Raises:
        RuntimeError: the length is not a power of two ("Error: override_state_buffer() buffer must
            be an power of 2 in length"); `buffer` is not a complex array ("Error:
            override_state_buffer() buffer must be an array of type complex128"); or the filter has
            no such buffer, as the bit filter ("Error: override_state_buffer is not implemented for
            this filter type.").
    """

def put_instructions(
    handle: SupportsIndex, records: NDArray[Any], num_ops: SupportsIndex, /
) -> None:
    """Runs instruction records in order, and returns when the last one has run.

    A record that fails ends the call; the records before it have taken effect.

    Args:
        handle: The filter.
        records: Packed records of 88 bytes each, one for each element of the first dimension:
            shape (n,) of a dtype of 88 bytes, or shape (n, 11) of a 64-bit dtype.
        num_ops: Number of records; must equal the length of `records`.

    Raises:
        RuntimeError: `num_ops` differs from the length ("Error: put_instructions array length
            differs from num_ops argument."); the array's size or strides are not those of packed
            records; or a record fails, with the message of its operation.
    """

def new_native_filter(type_name: str, /) -> int:
    """Makes a filter, without a register until its first reset record.

    Args:
        type_name: The filter's type, compared exactly: "StreamBitQPU".

    Returns:
        The handle, above 0 and never given out twice in a process.

    Raises:
        RuntimeError: "Error: Unknown Filter type: " and the name.
    """

def delete_native_filter(handle: SupportsIndex, /) -> None:
    """Destroys a filter and frees its memory. Filters are not destroyed by anything else.

    Args:
        handle: The filter.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def set_random(handle: SupportsIndex, /) -> None:
    """Sets all amplitudes to a random normalised state.

    A filter without amplitudes, as the bit filter, does nothing.

    Args:
        handle: The filter.

    Raises:
        RuntimeError: no filter has this handle; or the register does not exist.
    """

def normalize(handle: SupportsIndex, /) -> float:
    """Scales the state to total probability 1.

    Args:
        handle: The filter.

    Returns:
        The total probability before. A filter without amplitudes, as the bit filter, answers 1.0
        without a look.

    Raises:
        RuntimeError: no filter has this handle; or the register does not exist.
    """

def pps(handle: SupportsIndex, x_mask: SupportsIndex, z_mask: SupportsIndex, /) -> float:
    """Probability that a product of Pauli operators would measure as +1.

    Args:
        handle: The filter.
        x_mask: Qubits with an X factor, 32 bits.
        z_mask: Qubits with a Z factor, 32 bits; a qubit in both masks has a Y.

    Returns:
        The probability, 0.0 to 1.0. A filter without amplitudes, as the bit filter, answers 0.0
        without a look.

    Raises:
        RuntimeError: no filter has this handle; or the register does not exist.
    """

def postselect(handle: SupportsIndex, value: SupportsIndex, mask: SupportsIndex, /) -> None:
    """Keeps only the part of the state in which qubits have given values.

    The bit filter's state either has the values already or cannot, so it is never changed.

    Args:
        handle: The filter.
        value: Bit k is the value wanted of qubit k, 32 bits.
        mask: The qubits that count, 32 bits.

    Raises:
        RuntimeError: no reset record has run ("qc.reset() has not been called or did not
            succeed."); the bit filter's `mask` is 0 ("qc.peek_read_probability() must specify at
            least one qubit to measure."); or nothing of its state matches ("qc.postselect() no
            non-zero terms match the desired value.").
    """

def peek_num_nonzero_terms(handle: SupportsIndex, /) -> int:
    """Number of terms whose amplitude is not zero.

    Args:
        handle: The filter.

    Returns:
        The number, cut to its low 32 bits.

    Raises:
        RuntimeError: the filter does not keep such a list, as the bit filter ("Error: no QPU data
            for qc.peek_read_probability()").
    """

def peek_n_biggest_terms(
    handle: SupportsIndex,
    count: SupportsIndex,
    indices: NDArray[np.uint64] | NDArray[np.int64],
    amplitudes: NDArray[np.complex128],
    /,
) -> None:
    """Finds the terms of largest probability, the largest first.

    A filter without amplitudes, as the bit filter, leaves both arrays as they are.

    Args:
        handle: The filter.
        count: How many terms; at most the length of either array.
        indices: Array of a 64-bit dtype with a first stride of 8 bytes, for the terms' indices.
        amplitudes: Complex array for their amplitudes.

    Raises:
        RuntimeError: `indices` is complex or has another stride ("Error: peek_n_biggest_terms()
            dest_indoces must be an array of type int"); or `amplitudes` is not a complex array
            ("Error: peek_n_biggest_terms() dest_amplitudes must be an array of type complex128").
    """

def peek_value(
    handle: SupportsIndex, index: SupportsIndex, dest: NDArray[np.complex128], /
) -> None:
    """Copies one amplitude out without a measurement.

    A filter without amplitudes, as the bit filter, leaves the array as it is.

    Args:
        handle: The filter.
        index: The term, 32 bits.
        dest: Complex array of at least one element; the first takes the amplitude.

    Raises:
        RuntimeError: `dest` is not a complex array ("Error: peek_value() dest_amplitude must be an
            array of type complex128").
    """

def random_seed(unused: SupportsIndex, seed: SupportsIndex, /) -> None:
    """Seeds the one random generator of the process, which all filters draw from.

    Args:
        unused: Not looked at; need not be a handle.
        seed: The seed, 32 bits. The same seed gives the same draws.

    Raises:
        RuntimeError: the arguments are not two integers ("Error: argument parsing error.").
    """

def peek_read_probability(
    handle: SupportsIndex, value: SupportsIndex, mask: SupportsIndex, limit: SupportsFloat, /
) -> float:
    """Probability that a read of some qubits would give a value; measures nothing.

    Args:
        handle: The filter.
        value: Bit k is the value asked of qubit k, 32 bits.
        mask: The qubits that count, 32 bits.
        limit: A bound by which a filter may stop early; the bit filter does not use it.

    Returns:
        The probability; exactly 1.0 or 0.0 from the bit filter.

    Raises:
        RuntimeError: no reset record has run ("qc.reset() has not been called or did not
            succeed."); `mask` is 0 ("qc.peek_read_probability() must specify at least one qubit to
            measure."); or the filter has no such operation ("Error: no QPU data for
            qc.peek_read_probability()").
    """

def fetch_read_result(
    handle: SupportsIndex, first_flag: SupportsIndex, count: SupportsIndex, /
) -> int:
    """Read flags, where measurements have left their outcomes, as the bits of a number.

    Args:
        handle: The filter.
        first_flag: Number of the first flag, signed 32 bits. 0 and -1 read as 0, 1 as 1; other
            negative numbers read inverted. A flag that was never stored reads 0.
        count: Number of flags, at most 32.

    Returns:
        A number whose bit i is flag `first_flag + i`.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def setup_sim_params(
    handle: SupportsIndex,
    num_block_qubits: SupportsIndex,
    max_ram_size_gb: SupportsIndex,
    max_num_threads: SupportsIndex,
    randomized: SupportsIndex,
    use_opencl: SupportsIndex,
    async_: SupportsIndex,
    verbose: SupportsIndex,
    /,
) -> None:
    """Sets the simulator's parameters; a dense register reads them at its next reset.

    Args:
        handle: The filter; any type takes them.
        num_block_qubits: Index bits inside one block of amplitudes. 0 (default): chosen for you.
        max_ram_size_gb: Largest state vector in units of 2**30 bytes. 0 (default): no limit.
        max_num_threads: 1: no worker threads. 0 (default): no limit.
        randomized: Non-zero: a new state is random. Default 0: all qubits are 0.
        use_opencl: Stored, without effect. Default 0.
        async_: 0: no worker threads. Default 1.
        verbose: Non-zero: the set-up prints what it decides. Default 0.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def enable_qubit_debugging(handle: SupportsIndex, on: SupportsIndex, /) -> None:
    """Switches the check of freed qubits, whose failures arrive as events.

    Args:
        handle: The filter.
        on: Non-zero for on. A new filter has it off.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def finish(handle: SupportsIndex, /) -> None:
    """Waits until work still under way on the register has ended.

    The bit filter never leaves any.

    Args:
        handle: The filter.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def connect(
    handle: SupportsIndex, host: str, port: SupportsIndex, timeout: SupportsFloat, /
) -> str:
    """Connects a filter that works through a remote service.

    Args:
        handle: The filter.
        host: Name or address of the service.
        port: Port number, signed 32 bits.
        timeout: Longest wait in seconds.

    Returns:
        The filter's text about the outcome; empty from a filter without a connection.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def disconnect(handle: SupportsIndex, /) -> str:
    """Closes a filter's connection.

    Args:
        handle: The filter.

    Returns:
        The filter's text about the outcome; empty from a filter without a connection.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def get_status(handle: SupportsIndex, /) -> str:
    """Tells the state of a filter's connection.

    Args:
        handle: The filter.

    Returns:
        The filter's text; empty from a filter without a connection.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def get_next_event(handle: SupportsIndex, /) -> tuple[str, str, int, NDArray[np.uint64]] | None:
    """Takes the oldest event, a failed check of the program, off the filter's queue.

    Args:
        handle: The filter.

    Returns:
        None when the queue is empty, else the event's name, its message, its code and the ids of
        the markers that were open when it happened: an array of shape (n,), outermost first.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

"""The native engine: filters that consume streams of 88-byte instruction records.

Handles. A filter is named by its handle, a positive integer that `new_native_filter` returns.
Qubit 0 is the least significant bit of every mask, index and value.

Numbers. Every unsigned argument (handles, counts, masks, values) is truncated to its low 32 bits
without an error. So masks that are arguments cover qubits 0 to 31. Masks inside records have 64
bits and an offset.

Arrays. "Complex array" means an array of dtype complex128 whose first stride is 16 bytes. In
practice this is a contiguous array that is not empty; NumPy gives a new empty array a stride of 0.
The length of an array is its first dimension. The engine reads and writes arrays in place and keeps
no reference to them, except to the buffer of `override_state_buffer`. No array may share memory
with that buffer.

Amplitudes. The dense and the sparse filter hold amplitudes. They check an array before they use it.
An array that is too short fails with "Error: NAME() needs an array of N amplitudes, but was given
M.", where NAME is the function. A read-only array that a function writes to fails with "Error:
NAME() needs an array that it may write to.". A missing register is reported before these errors:
the text of the dense filter begins "Error: Simulated state vector data is requested, but not
present."; the bit and the Clifford filter say "qc.reset() has not been called or did not succeed.".
The sparse filter has an empty list of terms before its first reset, which is no error. "The order
of the list" means the order in which the sparse filter stores its terms.

Errors. Every failure sets a RuntimeError with the message and still returns None. The interpreter
reports such a call as a SystemError, whose `__cause__` is the RuntimeError. "Raises" below names
this RuntimeError. Every function fails with "Error: argument parsing error." if the number or the
types of the arguments are wrong. Every function that takes a handle, except `random_seed`, fails
with "Error: native filter not found." if no filter has this handle.

Locking. Every call holds the interpreter lock until it returns.
"""

from typing import Any, SupportsFloat, SupportsIndex

import numpy as np
from numpy.typing import NDArray

def pull_state(handle: SupportsIndex, dest: NDArray[np.complex128], /) -> str:
    """Copies the whole state.

    Args:
        handle: The filter.
        dest: Complex array for the amplitudes of n qubits in order of their index, shape (2**n,) or
            longer. For the sparse filter it may be shorter if it has a place for every term of the
            list; the other places become 0. The bit and the Clifford filter do not write to it, so
            an array of length 1 is enough.

    Returns:
        The filter's text about its state. From the bit filter: one character "0" or "1" for each
        qubit, qubit 0 first. From the Clifford filter, for n qubits: lines of 2 n + 3 characters
        and a newline: one line for each destabilizer, one line of "-", one line for each generator.
        The line of a row is a digit k for the factor i**k, a space, the bits of the X part, "|" and
        the bits of the Z part; a qubit with both bits has a Y. Up to 64 qubits, the highest qubit
        comes first. Above 64 qubits, the 64-qubit words are in ascending order, each with its
        highest bit first; if n is no multiple of 64, the first word has its lowest n % 64 bits
        only, and the last word has 64 bits. From the dense and the sparse filter: the empty string.

    Raises:
        RuntimeError: `dest` is not a complex array ("Error: pull_state() dest buffer must be an
            array of type complex128"); no reset record has run; `dest` is too short or read-only;
            or the filter has no state ("Error: no QPU data for qc.pull_state()").
    """

def pull_state_specific(
    handle: SupportsIndex, dest: NDArray[np.complex128], selector: SupportsIndex, /
) -> str:
    """Copies the amplitudes of some qubits for one value of the other qubits.

    A slice is the set of amplitudes that have the same value of the other qubits. The dense filter
    copies the slice of highest probability; among equal ones, the one with the most non-zero terms;
    among these, the first. The sparse filter copies the slice of its largest term; among equal
    terms, the first one in the list. The copy is not normalised.

    Args:
        handle: The filter.
        dest: Complex array for the amplitudes of k selected qubits, shape (2**k,) or longer, in
            order of the value of these qubits, the lowest qubit least significant. For the sparse
            filter it may be shorter if it has a place for every term of the slice.
        selector: Mask of the qubits, 32 bits. 0 selects the whole state; on the sparse filter it
            selects no qubit, and `dest` gets the largest term only.

    Returns:
        " entangled with the overall state of the circuit." if the probabilities in the slices
        differ, else the empty string. Phases are not compared. From the sparse filter: always the
        empty string.

    Raises:
        RuntimeError: `dest` is not a complex array (with the text of `pull_state`); the register
            does not exist; `dest` is too short or read-only; or the filter has no such operation,
            for example the bit and the Clifford filter ("Error: no QPU data for
            qc.pull_state_specific()").
    """

def push_state(
    handle: SupportsIndex, source: NDArray[np.complex128], selector: SupportsIndex, /
) -> None:
    """Replaces the whole state, or the state of some qubits, by amplitudes from an array.

    The engine first measures the selected qubits and sets them to 0. This collapses the qubits that
    are entangled with them. Then the state is the product of `source` and the state of the other
    qubits. `source` is not normalised.

    The sparse filter takes a whole state only, of any length. Its terms become the amplitudes whose
    squared magnitude is not below 1e-25 (before the first reset: not 0), in order of their index.
    It does not check that its register has these terms.

    Args:
        handle: The filter.
        source: Complex array of amplitudes in order of their index: shape (2**n,) or longer for
            the whole state of n qubits, (2**k,) or longer for k selected qubits, any shape (m,)
            for the sparse filter.
        selector: Mask of the qubits, 32 bits; 0 selects the whole state. The qubits must be
            adjacent: if there is a gap, the amplitudes go to other terms.

    Raises:
        RuntimeError: `source` is not a complex array ("Error: push_state() dest buffer must be an
            array of type complex128"); the register does not exist; `source` is too short; the
            register lacks a selected qubit ("Error: push_state() selector S names qubits outside
            the register of N qubits."); the sparse filter gets a selector ("Partial push_state is
            not yet implemented for sparse_sv."), or has too little memory for the terms ("Error:
            push_state() could not allocate a list of T terms." and the sizes needed and available;
            the old terms stay); or the filter has no such operation. The bit and the Clifford
            filter say "qc.push_state() has not been implemented for the Clifford sim.", other
            filters "Error: no QPU data for qc.push_state()".
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
        expected: Complex array of amplitudes in order of their index, shape (2**n,) or longer for
            a dense state of n qubits. The sparse filter compares its terms in the order of the
            list, stops at the first term that differs, and reads no other entry.
        tolerance: Largest difference allowed in a real or an imaginary part. NaN equals any number.
        flag: Signed 32-bit number, which the filter gets as on (not 0) or off. The dense and the
            sparse filter do not use it.

    Returns:
        1 if the state agrees, else 0. A filter without amplitudes, for example the bit filter,
        returns 1 without a comparison.

    Raises:
        RuntimeError: `expected` is not a complex array (with the text of `push_state`); on the
            dense filter, the register does not exist or `expected` is too short; or, on the sparse
            filter, a term is past the end of `expected` and no term before it differs.
    """

def override_state_buffer(handle: SupportsIndex, buffer: NDArray[np.complex128], /) -> None:
    """Makes the filter store its amplitudes in the caller's memory.

    The register gets n qubits, and the contents of the buffer become its state, in order of the
    index. An X on a qubit above the block size exchanges blocks. After that, the order of the
    amplitudes in the memory differs; `pull_state` into another array copies them in order.

    Args:
        handle: The filter.
        buffer: Complex array of shape (2**n,), writable, at any address that NumPy calls aligned.
            Lengths 0, 1 and 2 all mean one qubit. The filter holds a reference to the array until
            the filter is deleted or gets another buffer.

    Raises:
        RuntimeError: the length is not a power of two ("Error: override_state_buffer() buffer must
            be an power of 2 in length"); `buffer` is not a complex array ("Error:
            override_state_buffer() buffer must be an array of type complex128"); the buffer is too
            short for its qubits, as with length 0 or 1; it is not aligned ("Error:
            override_state_buffer() needs a buffer that begins at a multiple of 8 bytes."); it is
            read-only; or the filter is not a dense one ("Error: override_state_buffer is not
            implemented for this filter type."). The register is unchanged then.
    """

def put_instructions(
    handle: SupportsIndex, records: NDArray[Any], num_ops: SupportsIndex, /
) -> None:
    """Runs instruction records in order, and returns when the last one has run.

    A record that fails ends the call. The records before it have taken effect.

    "StreamConnect" runs no records. It passes the array to its socket in one write that does not
    wait; the bytes that the socket does not take are lost without an error. If the array has fetch
    requests (opcode 10000011), the filter then polls every 10 milliseconds until it has counted as
    many replies (10004011). A counted reply stores read flags. A poll reads the first record that
    has arrived in this call, once for each whole record that has arrived. So one reply at the front
    counts for any number of requests, and a reply after another record is not stored. If the filter
    has counted too few replies when the timeout of `connect` ends, it prints "Error: Timeout
    waiting to fetch measurement results. Measurement results are not valid." to standard output and
    returns; the flags keep their values. The timeout restarts when further bytes arrive after a
    whole record.

    Args:
        handle: The filter.
        records: Records of 88 bytes each without gaps, one for each element of the first dimension:
            shape (n,) of a dtype of 88 bytes, or shape (n, 11) of a 64-bit dtype.
        num_ops: Number of records; must equal the length of `records`.

    Raises:
        RuntimeError: `num_ops` differs from the length ("Error: put_instructions array length
            differs from num_ops argument."); the N rows are not of 88 bytes ("Error:
            put_instructions needs contiguous records of 88 bytes: N records need B bytes, but the
            array holds A."); there are gaps between them, with a first stride of S bytes
            ("Error: put_instructions needs contiguous records of 88 bytes, but the array's are S
            bytes apart."); a record fails, with the message of its operation; or "StreamConnect"
            has no connection ("Error: instructions pushed while there is no connection.").
    """

def new_native_filter(type_name: str, /) -> int:
    """Creates a filter. It has no register before its first reset record.

    Args:
        type_name: The filter type, compared exactly: "StreamQPU" for a dense state vector,
            "StreamSparseQPU" for a list of non-zero terms on up to 63 qubits, "StreamBitQPU" for
            one classical bit per qubit, "StreamCliffordQPU" for a stabilizer tableau,
            "StreamConnect" for a socket to a service that runs the records.

    Returns:
        The handle, above 0. A process never uses a handle twice.

    Raises:
        RuntimeError: "Error: Unknown Filter type: " and the name.
    """

def delete_native_filter(handle: SupportsIndex, /) -> None:
    """Destroys a filter and frees its memory. Nothing else destroys a filter.

    Args:
        handle: The filter.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def set_random(handle: SupportsIndex, /) -> None:
    """Replaces the state by a random normalised state.

    On the sparse, the bit and the Clifford filter this function has no effect.

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
        The total probability before. If it is 0.0, the state does not change; the sparse filter
        returns 0.0 before its first reset. A filter without amplitudes, for example the bit filter,
        returns 1.0.

    Raises:
        RuntimeError: no filter has this handle; or the register does not exist.
    """

def pps(handle: SupportsIndex, x_mask: SupportsIndex, z_mask: SupportsIndex, /) -> float:
    """Probability that a Pauli product P measures as +1: <(1 + P) / 2>. Measures nothing.

    The formula is the projector on the eigenvalue +1: Nielsen and Chuang, "Quantum Computation and
    Quantum Information", section 2.2.5, https://doi.org/10.1017/CBO9780511976667.

    Args:
        handle: The filter.
        x_mask: Qubits with a factor X, 32 bits.
        z_mask: Qubits with a factor Z, 32 bits; a qubit in both masks has a factor Y.

    Returns:
        The probability, 0.0 to 1.0, and 0.0 if both masks are 0. The sparse, the bit and the
        Clifford filter always return 0.0.

    Raises:
        RuntimeError: no filter has this handle; or the register does not exist.
    """

def postselect(handle: SupportsIndex, value: SupportsIndex, mask: SupportsIndex, /) -> None:
    """Projects the state on the terms in which some qubits have given values.

    The projected state is scaled to total probability 1. The sparse filter keeps the other terms in
    its list, with amplitude 0. The bit filter never changes its state, which either has the values
    or fails. The Clifford filter takes one qubit and draws no random number.

    Args:
        handle: The filter.
        value: Bit k is the value of qubit k, 32 bits. On the sparse filter no term matches a bit
            outside `mask`.
        mask: The qubits, 32 bits.

    Raises:
        RuntimeError: no reset record has run; `mask` is 0, for which the dense filter says
            "qc.postselect() must specify at least one qubit to postselect.", the sparse filter
            "qc.postselect() must specify at least one qubit to measure." and the bit filter
            "qc.peek_read_probability() must specify at least one qubit to measure."; or no term
            matches. Then the dense filter says "Error: qc.postselect() no nonzero terms match
            desired value.", the sparse and the bit filter "qc.postselect() no non-zero terms match
            the desired value."; all amplitudes of a dense or sparse state are 0 then. The Clifford
            filter says "qc.postselect() must specify at least one qubit to postselect." and
            "qc.postselect() no non-zero terms have the desired value.", and refuses several qubits
            and qubits outside its register with the texts of `peek_read_probability`.
    """

def peek_num_nonzero_terms(handle: SupportsIndex, /) -> int:
    """Number of terms in the list of the sparse filter.

    Terms of amplitude 0, which gates and measurements leave in the list, count too.

    Args:
        handle: The filter.

    Returns:
        The number, modulo 2**32; 0 before the first reset.

    Raises:
        RuntimeError: the filter is not a sparse one ("Error: no QPU data for
            qc.peek_read_probability()").
    """

def peek_n_biggest_terms(
    handle: SupportsIndex,
    count: SupportsIndex,
    indices: NDArray[np.uint64] | NDArray[np.int64],
    amplitudes: NDArray[np.complex128],
    /,
) -> None:
    """Finds the terms of highest probability and writes them in descending order.

    Equal terms are in ascending order of the index on the dense filter, and in the order of the
    list on the sparse filter. The sparse filter omits terms whose probability is 0 or NaN. Places
    without a term get index 0 and amplitude 0. A filter without amplitudes, for example the bit
    filter, writes to neither array.

    Args:
        handle: The filter.
        count: Number of terms, at most the length of either array. With 0, nothing is written.
        indices: Array of a 64-bit dtype with a first stride of 8 bytes, for the terms' indices.
        amplitudes: Complex array for their amplitudes.

    Raises:
        RuntimeError: `indices` is complex or has a wrong stride ("Error: peek_n_biggest_terms()
            dest_indoces must be an array of type int"); `amplitudes` is not a complex array
            ("Error: peek_n_biggest_terms() dest_amplitudes must be an array of type complex128");
            or, on the dense and the sparse filter, `indices` is too short ("Error:
            peek_n_biggest_terms() needs an array of N indices, but was given M."), `amplitudes` is
            too short, one of them is read-only, or the dense register does not exist.
    """

def peek_value(
    handle: SupportsIndex, index: SupportsIndex, dest: NDArray[np.complex128], /
) -> None:
    """Copies one amplitude without a measurement.

    A filter without amplitudes, for example the bit filter, does not write to the array.

    Args:
        handle: The filter.
        index: The index of the term, 32 bits.
        dest: Complex array of at least one element; the first element gets the amplitude.

    Raises:
        RuntimeError: `dest` is not a complex array ("Error: peek_value() dest_amplitude must be an
            array of type complex128"); on the dense and the sparse filter, `dest` is empty or
            read-only; or, on the dense filter, the register does not exist or has no such term
            ("Error: peek_value() index I lies outside the register of N terms."). The sparse filter
            writes 0 for a term that is not in its list.
    """

def random_seed(unused: SupportsIndex, seed: SupportsIndex, /) -> None:
    """Seeds the random generator that all filters of the process share, except Clifford filters.

    Args:
        unused: Not used; it need not be a handle.
        seed: The seed, 32 bits. The same seed gives the same draws. Each Clifford filter has a
            separate generator, which no function seeds. A forked process continues with a copy of
            the generator; if `nimbrel` is imported, it gives the forked process a new seed.

    Raises:
        RuntimeError: the arguments are not two integers ("Error: argument parsing error.").
    """

def peek_read_probability(
    handle: SupportsIndex, value: SupportsIndex, mask: SupportsIndex, limit: SupportsFloat, /
) -> float:
    """Probability that a measurement of some qubits gives a value. Measures nothing.

    Args:
        handle: The filter.
        value: Bit k is the value of qubit k, 32 bits. On the sparse filter no term matches a bit
            outside `mask`.
        mask: The qubits, 32 bits; for the Clifford filter, one qubit.
        limit: Above 0, a limit at which a sum ends early: each block of the dense filter ends when
            the sum of the block reaches it, the sparse filter when the sum over its list does. The
            bit and the Clifford filter do not use it.

    Returns:
        The probability; exactly 1.0 or 0.0 from the bit filter, and 1.0, 0.5 or 0.0 from the
        Clifford filter.

    Raises:
        RuntimeError: no reset record has run; `mask` is 0 ("qc.peek_read_probability() must specify
            at least one qubit to measure."); on the Clifford filter, `mask` has several qubits
            ("qc.peek_read_probability() in Clifford sim must specify exactly one qubit to
            measure.") or a qubit outside the register ("Error: qubit Q lies outside the register of
            N qubits."); or the filter has no such operation ("Error: no QPU data for
            qc.peek_read_probability()").
    """

def fetch_read_result(
    handle: SupportsIndex, first_flag: SupportsIndex, count: SupportsIndex, /
) -> int:
    """Returns read flags, which hold the outcomes of measurements, as the bits of a number.

    Args:
        handle: The filter.
        first_flag: Number of the first flag, signed 32 bits. Flags 0 and -1 are always 0, flag 1 is
            always 1. Other negative numbers read the flag inverted. A flag that no record has
            stored reads 0.
        count: Number of flags, at most 64. The result has the first 32 only.

    Returns:
        A number of 32 bits whose bit i is flag `first_flag + i`.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found."); or `count`, C,
            is above 64 ("Error: fetch_read_result() was asked for C read flags, but its result
            holds 64 at most.").
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
    """Sets the parameters of a filter. A dense filter uses them from its next reset on.

    Args:
        handle: The filter; every filter type accepts parameters.
        num_block_qubits: Index bits inside one block of amplitudes. 0 (default): the engine
            chooses.
        max_ram_size_gb: Largest state vector, in units of 2**30 bytes. 0 (default): no limit.
        max_num_threads: 2 or more: largest number of blocks that the engine chooses. 1: no worker
            threads. 0 (default): no limit.
        randomized: Not 0: a new state is random. 0 (default): all qubits of a new state are 0.
        use_opencl: Stored, without effect. Default 0.
        async_: 0: no worker threads. Default 1.
        verbose: Not 0: the set-up prints what it decides. Default 0.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def enable_qubit_debugging(handle: SupportsIndex, on: SupportsIndex, /) -> None:
    """Switches the check of freed qubits on or off. A failed check is an event.

    Args:
        handle: The filter.
        on: Not 0: on. 0: off, as in a new filter.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def finish(handle: SupportsIndex, /) -> None:
    """Waits until the filter has done all its work.

    The dense, the sparse, the bit and the Clifford filter have done it at the end of every call.

    Args:
        handle: The filter.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def connect(
    handle: SupportsIndex, host: str, port: SupportsIndex, timeout: SupportsFloat, /
) -> str:
    """Connects a "StreamConnect" filter to a service by TCP over IPv4.

    An open connection is closed first. The filter also prints a line: "Connected ok." to standard
    output, or the reason of a failure to standard error. Other filter types do nothing.

    Args:
        handle: The filter.
        host: Name or address of the service.
        port: Port number, 0 to 65535. Other numbers fail like a refused connection.
        timeout: Longest wait for replies in seconds, from now on, even if the connection fails.
            With 0, a negative number or NaN the filter does not wait. No signal ends a wait.

    Returns:
        The empty string if there is a connection now, else "Error: failed to connect to host
        HOST:PORT". The empty string from other filter types.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def disconnect(handle: SupportsIndex, /) -> str:
    """Closes the connection of a filter, if there is one. The read flags stay.

    Args:
        handle: The filter.

    Returns:
        The empty string.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def get_status(handle: SupportsIndex, /) -> str:
    """Returns the state of the connection, as far as this side knows it.

    The filter does not notice when the service has gone.

    Args:
        handle: The filter.

    Returns:
        From "StreamConnect" '{"connected":true}' or '{"connected":false}'; the empty string from
        other filter types.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def get_next_event(handle: SupportsIndex, /) -> tuple[str, str, int, NDArray[np.uint64]] | None:
    """Takes the oldest event off the queue of a filter. An event is a failed check of a program.

    Args:
        handle: The filter.

    Returns:
        None if the queue is empty, else the name of the event, its message, its code and the ids of
        the event markers that were open: an array of shape (n,), dtype uint64, outermost first.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

"""The native engine: filters that consume streams of 88-byte instruction records.

Names. A filter is named by its handle, a positive integer from `new_native_filter`. Qubit 0 is the
least significant bit of every mask, index and value.

Numbers. Every unsigned argument (handles, counts, masks, values) is cut to its low 32 bits without
a word. Masks given as arguments therefore reach qubits 0 to 31; masks inside records have 64 bits
and an offset.

Arrays. "Complex array" means dtype complex128 whose first stride is 16 bytes, so in practice a
contiguous one that is not empty: NumPy gives a new empty array a stride of 0. An array's length is
its first dimension. Arrays are read and written in place and never kept, but for
`override_state_buffer`; none should share memory with the buffer given there.

Amplitudes. Filters that hold amplitudes, the dense and the sparse one, look at the memory behind an
array before they use it. One that is too short fails with "Error: NAME() needs an array of N
amplitudes, but was given M.", one that is read-only, where it is to be written, with "Error: NAME()
needs an array that it may write to.", NAME being the function. A register that does not exist is
reported first: by the dense filter with a text that begins "Error: Simulated state vector data is
requested, but not present.", by the bit and the Clifford filter with "qc.reset() has not been
called or did not succeed.". The sparse filter has an empty list of terms then, which is no error.
Its list has an order of its own, told where it matters.

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
        dest: Complex array of shape (2**n,) or longer for the amplitudes of n qubits, in order of
            their index. For the sparse filter it may be shorter, as long as it has a place for
            every stored term; the rest of it becomes zeros. The bit and the Clifford filter leave
            it as it is; an array of length 1 will do.

    Returns:
        The filter's text about its state. From the bit filter: one character "0" or "1" for each
        qubit, qubit 0 first. From the Clifford filter, for n qubits: lines of 2 n + 3 characters,
        each ended by a newline: one for each destabilizer, one of "-", one for each generator. A
        row's line is a digit k for the factor i**k, a space, the bits of the X part, "|" and the
        bits of the Z part, where both bits make a Y. Up to 64 qubits the highest comes first.
        Above, 64-qubit words follow each other from the lowest up, each with its highest bit
        first, but when n is no multiple of 64 the first word is printed with its lowest n % 64 bits
        alone and the last one with 64. From the dense and the sparse filter: nothing.

    Raises:
        RuntimeError: `dest` is not a complex array ("Error: pull_state() dest buffer must be an
            array of type complex128"); no reset record has run; `dest` is too short or read-only;
            or the filter has no state to give ("Error: no QPU data for qc.pull_state()").
    """

def pull_state_specific(
    handle: SupportsIndex, dest: NDArray[np.complex128], selector: SupportsIndex, /
) -> str:
    """Copies the amplitudes of some qubits out as if they stood alone.

    For each state of the other qubits there is one slice of amplitudes over the selected ones. The
    heaviest slice is copied, the earliest of equals with most terms, and not normalised. The sparse
    filter copies the slice that holds its largest term, the first of equals in the list.

    Args:
        handle: The filter.
        dest: Complex array of shape (2**k,) or longer for the amplitudes of k selected qubits, in
            order of their values, the lowest qubit least significant. For the sparse filter it
            may be shorter, as long as it has a place for every term of the slice.
        selector: Mask of the qubits, 32 bits; 0 selects the whole state, but on the sparse filter
            no qubit, so that `dest` gets the largest term alone.

    Returns:
        " entangled with the overall state of the circuit." when the probabilities in the slices
        differ, else nothing. Phases are not compared. From the sparse filter: always nothing.

    Raises:
        RuntimeError: `dest` is not a complex array (with the text of `pull_state`); the register
            does not exist; `dest` is too short or read-only; or the filter has no such operation,
            as the bit and the Clifford filter ("Error: no QPU data for
            qc.pull_state_specific()").
    """

def push_state(
    handle: SupportsIndex, source: NDArray[np.complex128], selector: SupportsIndex, /
) -> None:
    """Replaces the state, or the part of some qubits in it, by amplitudes from an array.

    Selected qubits are measured and set to 0 first, which collapses what is entangled with them;
    then `source` is multiplied in as their factor. It is taken as it is and not normalised.

    The sparse filter takes a whole state only, of any length: its terms become those whose squared
    magnitude is not below 1e-25 (not zero, before the first reset), in order of their index. It
    does not look whether its register has them.

    Args:
        handle: The filter.
        source: Complex array of amplitudes, in order of their index: shape (2**n,) or longer for
            the whole state of n qubits, (2**k,) or longer for k selected qubits; any shape (m,)
            for the sparse filter.
        selector: Mask of the qubits, 32 bits; 0 selects the whole state. The qubits must be one
            run without gaps: with gaps the amplitudes go to other terms.

    Raises:
        RuntimeError: `source` is not a complex array ("Error: push_state() dest buffer must be an
            array of type complex128"); the register does not exist; `source` is too short; the
            register lacks a selected qubit ("Error: push_state() selector S names qubits outside
            the register of N qubits."); the sparse filter is given a selector ("Partial push_state
            is not yet implemented for sparse_sv.") or terms for which there is no memory ("Error:
            push_state() could not allocate a list of T terms." and the sizes needed and left; the
            old terms stay); or the filter takes no state. The bit and the
            Clifford filter say "qc.push_state() has not been implemented for the Clifford sim.",
            other filters "Error: no QPU data for qc.push_state()".
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
        expected: Complex array of amplitudes, in order of their index, of shape (2**n,) or longer
            for a dense state of n qubits. The sparse filter compares its stored terms in the order
            of the list, up to the first that differs, and looks at no other entry.
        tolerance: Largest difference allowed in a real or an imaginary part. A NaN agrees with
            anything.
        flag: Handed to the filter as on (non-zero) or off; a signed 32-bit number. The dense and
            the sparse filter do not use it.

    Returns:
        1 when the state agrees, else 0. A filter without amplitudes, as the bit filter, answers 1
        without a look.

    Raises:
        RuntimeError: `expected` is not a complex array (with the text of `push_state`); or, on the
            dense filter, the register does not exist or `expected` is too short; or, on the sparse
            filter, no term differs before one that lies past `expected`.
    """

def override_state_buffer(handle: SupportsIndex, buffer: NDArray[np.complex128], /) -> None:
    """Makes the filter keep its amplitudes in the caller's memory.

    The register is reset to n qubits and the buffer's contents become its state, in order of the
    index. An X on a qubit above the block size exchanges blocks, so the memory is no picture of the
    state afterwards: `pull_state` into another array gives that.

    Args:
        handle: The filter.
        buffer: Complex array of shape (2**n,), writable, at any address that NumPy calls aligned.
            Lengths 0, 1 and 2 all stand for one qubit. The filter holds a reference to it until it
            is deleted or takes another buffer.

    Raises:
        RuntimeError: the length is not a power of two ("Error: override_state_buffer() buffer must
            be an power of 2 in length"); `buffer` is not a complex array ("Error:
            override_state_buffer() buffer must be an array of type complex128"); the buffer holds
            less than its qubits need, as one of length 0 or 1 does; it is not aligned ("Error:
            override_state_buffer() needs a buffer that begins at a multiple of 8 bytes."); it is
            read-only; or the filter has no such buffer, as all but the dense one ("Error:
            override_state_buffer is not implemented for this filter type."). The register is as
            before then.
    """

def put_instructions(
    handle: SupportsIndex, records: NDArray[Any], num_ops: SupportsIndex, /
) -> None:
    """Runs instruction records in order, and returns when the last one has run.

    A record that fails ends the call; the records before it have taken effect.

    "StreamConnect" runs nothing. It hands the array to its socket in one write that does not wait:
    what the socket does not take is lost without a word. When there are fetch requests in the array
    (opcode 10000011), it then polls every 10 milliseconds for as many replies (10004011), each of
    which stores read flags. A poll looks, once for every whole record received in this call, at the
    first of them; so one reply at the head completes any number, and a reply behind another record
    is not stored. Without enough of them for the seconds given to `connect`, which begin anew with
    data behind a whole record, it prints "Error: Timeout waiting to fetch measurement results.
    Measurement results are not valid." to the standard output and returns; the flags keep what
    they had.

    Args:
        handle: The filter.
        records: Packed records of 88 bytes each, one for each element of the first dimension:
            shape (n,) of a dtype of 88 bytes, or shape (n, 11) of a 64-bit dtype.
        num_ops: Number of records; must equal the length of `records`.

    Raises:
        RuntimeError: `num_ops` differs from the length ("Error: put_instructions array length
            differs from num_ops argument."); the N rows are not of 88 bytes ("Error:
            put_instructions needs contiguous records of 88 bytes: N records need B bytes, but the
            array holds A."); they do not lie back to back, but S bytes apart by the first stride
            ("Error: put_instructions needs contiguous records of 88 bytes, but the array's are S
            bytes apart."); a record fails, with the message of its operation; or there is no
            connection ("Error: instructions pushed while there is no connection.").
    """

def new_native_filter(type_name: str, /) -> int:
    """Makes a filter, without a register until its first reset record.

    Args:
        type_name: The filter's type, compared exactly: "StreamQPU" for the dense state vector,
            "StreamSparseQPU" for a list of non-zero terms on up to 63 qubits, "StreamBitQPU" for
            one classical bit per qubit, "StreamCliffordQPU" for a stabilizer tableau,
            "StreamConnect" for a socket to a service that runs the records.

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

    The sparse, the bit and the Clifford filter do nothing.

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
        The total probability before; a state of 0.0 stays as it is, and the sparse filter answers
        0.0 before its first reset. A filter without amplitudes, as the bit filter, answers 1.0
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
        The probability, 0.0 to 1.0, and 0.0 for two empty masks. The sparse, the bit and the
        Clifford filter answer 0.0 without a look.

    Raises:
        RuntimeError: no filter has this handle; or the register does not exist.
    """

def postselect(handle: SupportsIndex, value: SupportsIndex, mask: SupportsIndex, /) -> None:
    """Keeps only the part of the state in which qubits have given values.

    The rest is scaled to total probability 1. The sparse filter keeps the terms that fail, with
    amplitude 0. The bit filter's state either has the values already or cannot, so it is never
    changed. The Clifford filter takes one qubit and draws nothing.

    Args:
        handle: The filter.
        value: Bit k is the value wanted of qubit k, 32 bits. On the sparse filter nothing matches
            a bit outside `mask`.
        mask: The qubits that count, 32 bits.

    Raises:
        RuntimeError: no reset record has run; `mask` is 0, for which the dense filter says
            "qc.postselect() must specify at least one qubit to postselect.", the sparse filter
            "qc.postselect() must specify at least one qubit to measure." and the bit filter
            "qc.peek_read_probability() must specify at least one qubit to measure."; or nothing of
            the state matches. Then the dense filter says "Error: qc.postselect() no nonzero terms
            match desired value.", the sparse and the bit filter "qc.postselect() no non-zero terms
            match the desired value."; a dense or sparse state is all zero then. The Clifford filter
            says "qc.postselect() must specify at least one qubit to postselect." and
            "qc.postselect() no non-zero terms have the desired value.", and refuses several qubits
            and those outside its register with the texts of `peek_read_probability`.
    """

def peek_num_nonzero_terms(handle: SupportsIndex, /) -> int:
    """Number of terms that the sparse filter stores.

    Terms of amplitude 0, which gates and measurements leave behind, count too.

    Args:
        handle: The filter.

    Returns:
        The number, cut to its low 32 bits; 0 before the first reset.

    Raises:
        RuntimeError: the filter does not keep such a list, as all but the sparse one ("Error: no
            QPU data for qc.peek_read_probability()").
    """

def peek_n_biggest_terms(
    handle: SupportsIndex,
    count: SupportsIndex,
    indices: NDArray[np.uint64] | NDArray[np.int64],
    amplitudes: NDArray[np.complex128],
    /,
) -> None:
    """Finds the terms of largest probability, the largest first, of equals the lowest index first.

    Of equals the sparse filter puts the one first that comes first in its list. It leaves out terms
    whose probability is 0 or no number. Places left over, when fewer terms are not zero, get index
    0 and amplitude 0. A filter without amplitudes, as the bit filter, leaves both arrays as they
    are.

    Args:
        handle: The filter.
        count: How many terms, at most the length of either array; 0 touches nothing.
        indices: Array of a 64-bit dtype with a first stride of 8 bytes, for the terms' indices.
        amplitudes: Complex array for their amplitudes.

    Raises:
        RuntimeError: `indices` is complex or has another stride ("Error: peek_n_biggest_terms()
            dest_indoces must be an array of type int"); `amplitudes` is not a complex array
            ("Error: peek_n_biggest_terms() dest_amplitudes must be an array of type complex128");
            or, on the dense and the sparse filter, `indices` is too short ("Error:
            peek_n_biggest_terms() needs an array of N indices, but was given M."), `amplitudes` is,
            or one of them is read-only, or the dense register does not exist.
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
            array of type complex128"); on the dense and the sparse filter, `dest` is empty or
            read-only; or, on the dense filter, the register does not exist or has no such term
            ("Error: peek_value() index I lies outside the register of N terms."). The sparse filter
            gives 0 for a term that it does not store.
    """

def random_seed(unused: SupportsIndex, seed: SupportsIndex, /) -> None:
    """Seeds the random generator that serves every filter of the process but the Clifford one.

    Args:
        unused: Not looked at; need not be a handle.
        seed: The seed, 32 bits. The same seed gives the same draws. A Clifford filter draws from
            a generator of its own, which no seed reaches. A forked process goes on with the
            generator as it stood; importing `nimbrel` seeds it anew there.

    Raises:
        RuntimeError: the arguments are not two integers ("Error: argument parsing error.").
    """

def peek_read_probability(
    handle: SupportsIndex, value: SupportsIndex, mask: SupportsIndex, limit: SupportsFloat, /
) -> float:
    """Probability that a read of some qubits would give a value; measures nothing.

    Args:
        handle: The filter.
        value: Bit k is the value asked of qubit k, 32 bits. On the sparse filter nothing matches
            a bit outside `mask`.
        mask: The qubits that count, 32 bits; for the Clifford filter, one qubit.
        limit: Above 0, a bound by which a filter may stop early: each block of the dense filter
            stops as soon as its own sum reaches it, the sparse filter as soon as the sum over its
            list does. The bit and the Clifford filter do not use it.

    Returns:
        The probability; exactly 1.0 or 0.0 from the bit filter, and 1.0, 0.5 or 0.0 from the
        Clifford filter.

    Raises:
        RuntimeError: no reset record has run; `mask` is 0 ("qc.peek_read_probability() must specify
            at least one qubit to measure."); the Clifford filter is asked about several qubits
            ("qc.peek_read_probability() in Clifford sim must specify exactly one qubit to
            measure.") or one that its register lacks ("Error: qubit Q lies outside the register of
            N qubits."); or the filter has no such operation ("Error: no QPU data for
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
        count: Number of flags, at most 64, of which only the low 32 come back in the result.

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
    """Sets the simulator's parameters; a dense register reads them at its next reset.

    Args:
        handle: The filter; any type takes them.
        num_block_qubits: Index bits inside one block of amplitudes. 0 (default): chosen for you.
        max_ram_size_gb: Largest state vector in units of 2**30 bytes. 0 (default): no limit.
        max_num_threads: 2 or more: most blocks of the automatic choice. 1: no worker threads. 0
            (default): no limit.
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

    The dense, the sparse, the bit and the Clifford filter never leave any.

    Args:
        handle: The filter.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def connect(
    handle: SupportsIndex, host: str, port: SupportsIndex, timeout: SupportsFloat, /
) -> str:
    """Connects a filter that works through a remote service, by TCP over IPv4.

    A connection that is there is closed first. "StreamConnect" also prints a line: "Connected ok."
    to the standard output, or what went wrong to the standard error. Other filters do nothing.

    Args:
        handle: The filter.
        host: Name or address of the service.
        port: Port number, 0 to 65535; others fail as a refused connection does.
        timeout: Longest wait for replies in seconds, from now on, also when connecting fails. 0,
            less and NaN wait not at all. No signal ends a wait.

    Returns:
        Nothing when there is a connection now, else "Error: failed to connect to host HOST:PORT".
        Empty from a filter without a connection.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def disconnect(handle: SupportsIndex, /) -> str:
    """Closes a filter's connection, if there is one. Its read flags stay.

    Args:
        handle: The filter.

    Returns:
        Nothing.

    Raises:
        RuntimeError: no filter has this handle ("Error: native filter not found.").
    """

def get_status(handle: SupportsIndex, /) -> str:
    """Tells the state of a filter's connection, as far as this end knows it.

    A service that has gone is not noticed.

    Args:
        handle: The filter.

    Returns:
        From "StreamConnect" '{"connected":true}' or '{"connected":false}'; nothing from a filter
        without a connection.

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

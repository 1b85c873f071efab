/// The base of the register object: the part that does not depend on how a filter simulates.
///
/// Used by filters and the binding on the thread that runs a dispatcher or a wrapper.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/bits.h"

namespace Nimbrel {

class OpFilter;

/// Read flags, reserved qubits, mask extensions and simulator parameters of one filter.
///
/// Owned by its filter. The interpreter lock admits one thread at a time, and block workers do not
/// use this class, so it has no lock.
class QPU_Base {
  public:
    QPU_Base(unsigned long qubits, OpFilter* owning_filter);
    virtual ~QPU_Base();
    QPU_Base(const QPU_Base&) = delete;
    QPU_Base& operator=(const QPU_Base&) = delete;

    /// Read flags as bits of a number. Returns 0 here; the derived register overrides it.
    virtual unsigned long fetch_read_result(long first, unsigned long count);

    /// Value of a read flag. The numbers 0, 1 and -1 are the constants 0, 1 and 0. A negative
    /// number reads a stored flag inverted. A flag that was never stored reads 0 for either sign.
    long get_read_flag(long flag) const;

    /// Stores the low bit of `value`, inverted for a negative number. Constants store nothing.
    void set_read_flag(long flag, long value);

    /// Allocates the memory for `count` flags from `first` on, so that storing them cannot fail. A
    /// measurement calls it before it changes the state.
    void prepare_read_flags(long first, unsigned long count) {
        if (!has_memory_for_flags(first, count)) reserve_read_flags(first, count);
    }

    /// Whether `prepare_read_flags` would allocate nothing.
    bool has_memory_for_flags(long first, unsigned long count) const {
        return magnitude(first) + count <= read_flags.capacity() * bits_per_word;
    }

    /// Whether a classical condition holds. Unlike in `get_read_flag`, 0 holds, -1 fails, and a
    /// flag that was never stored fails for either sign.
    bool flag_condition(long cond_flag) const;

    /// Appends the masks of an extension record to the lists for the next operation.
    void extend_masks(unsigned long target_mask, unsigned long target_offset,
                      unsigned long cond_mask, unsigned long cond_neg_mask,
                      unsigned long cond_offset);
    void clear_extensions();
    bool has_extensions() const { return !target_extensions.empty() || !cond_extensions.empty(); }

    /// Reserves the lowest run of `count` free qubits and returns its first qubit. Returns
    /// 0xFFFFFFFE for a register without qubits. Prints a line and returns 0xFFFFFFFF if no run is
    /// free.
    long reserve_qubits(unsigned long count);

    /// Frees the range that begins at qubit `first`. Prints a line for a qubit outside the
    /// register.
    void release_qubits(int first);

    /// Frees all qubits and gives the table one entry for each qubit of the register.
    void clear_all_qints();

    unsigned long num_qubits;
    bool debug_qubits = false;  ///< checked frees report qubits that are not zero
    OpFilter* owner;

    /// Queues an event of the owner; empty for a register without an owner. A callback, because
    /// filters use this class and not the other way round.
    std::function<void(std::string name, std::string message, unsigned int code)> report_event;

    std::vector<unsigned long> read_flags;  ///< flag i is bit i & 63 of word i >> 6
    unsigned long read_flag_capacity = 0;   ///< modulus of all flag numbers

    /// Length of the reserved range that begins at each qubit, 0 where none begins.
    std::vector<unsigned int> qint_table;

    // Mask extensions for the next operation, flat pairs of mask and bit offset. Pair p of
    // `cond_neg_extensions` belongs to pair p of `cond_extensions`.
    std::vector<unsigned long> target_extensions;
    std::vector<unsigned long> cond_extensions;
    std::vector<unsigned long> cond_neg_extensions;

    std::map<std::string, unsigned long> sim_params;
    bool verbose = false;

  protected:
    /// Position of a flag in the table. Flag numbers that differ by the capacity share a position.
    unsigned long flag_position(long flag) const;

    /// Whether the flag table has the word of this position.
    bool is_stored(unsigned long position) const;

    void reserve_read_flags(long first, unsigned long count);

    bool stored_bit(unsigned long position) const;
    void store_bit(unsigned long position, bool bit);
};

}  // namespace Nimbrel

/// The part of the register object that every filter uses, whatever simulates behind it.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Nimbrel {

class OpFilter;

/// Read flags, reserved qubits, mask extensions and simulator parameters of one filter.
///
/// Owned by its filter. Only the thread that runs a dispatcher or a wrapper comes here: the
/// interpreter lock lets one in at a time, and block workers never do.
class QPU_Base {
  public:
    QPU_Base(unsigned long qubits, OpFilter* owning_filter);
    virtual ~QPU_Base();
    QPU_Base(const QPU_Base&) = delete;
    QPU_Base& operator=(const QPU_Base&) = delete;

    /// Read flags as bits of a number, for registers that store any; 0 here.
    virtual unsigned long fetch_read_result(long first, unsigned long count);

    /// Value of a read flag. 0, 1 and -1 are the constants 0, 1 and 0. A flag that was never stored
    /// reads 0, also through a negative number: only stored bits are inverted.
    long get_read_flag(long flag) const;

    /// Stores the low bit of `value`, inverted for a negative number. The constants take nothing.
    void set_read_flag(long flag, long value);

    /// Whether a record with this classical condition acts. Unlike `get_read_flag`, 0 holds, -1
    /// fails, and a flag that was never stored fails whatever its sign.
    bool flag_condition(long cond_flag) const;

    /// Appends the masks of an extension record to the lists for the next operation.
    void extend_masks(unsigned long target_mask, unsigned long target_offset,
                      unsigned long cond_mask, unsigned long cond_neg_mask,
                      unsigned long cond_offset);
    void clear_extensions();
    bool has_extensions() const { return !target_extensions.empty() || !cond_extensions.empty(); }

    /// Reserves the lowest run of `count` free qubits and returns its first qubit. 0xFFFFFFFE tells
    /// of a register without qubits, 0xFFFFFFFF (with a printed line) of one that is full.
    long reserve_qubits(unsigned long count);

    /// Frees the range that begins at qubit `first`; one outside the register only prints a line.
    void release_qubits(int first);

    /// Gives the table one free entry for each qubit of the register.
    void clear_all_qints();

    unsigned long num_qubits;
    bool debug_qubits = false;  ///< checked frees report qubits that are not zero
    OpFilter* owner;

    /// Queues an event of the owner; empty for a register without an owner. A callback, because
    /// filters use this class and not the other way round.
    std::function<void(std::string name, std::string message, unsigned int code)> report_event;

    std::vector<unsigned long> read_flags;  ///< flag i is bit i & 63 of word i >> 6
    unsigned long read_flag_capacity = 0;   ///< modulus of all flag numbers

    /// Length of the reserved range that begins at a qubit, 0 where none begins.
    std::vector<unsigned int> qint_table;

    // Flat pairs of mask and bit offset, waiting for the next operation. The last two lists go in
    // step: pair p of one belongs to pair p of the other.
    std::vector<unsigned long> target_extensions;
    std::vector<unsigned long> cond_extensions;
    std::vector<unsigned long> cond_neg_extensions;

    std::map<std::string, unsigned long> sim_params;
    bool verbose = false;

  protected:
    /// A stored flag's position; distinct numbers share a bit when the capacity divides their gap.
    unsigned long flag_position(long flag) const;

    /// Whether the flag table holds the word of this position yet.
    bool is_stored(unsigned long position) const;

    bool stored_bit(unsigned long position) const;
    void store_bit(unsigned long position, bool bit);
};

}  // namespace Nimbrel

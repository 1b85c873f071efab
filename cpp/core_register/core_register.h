/// `QPU`, the register object that every filter owns and the state vector of the dense one.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "filter/state/qpu_base.h"
#include "support/complex.h"
#include "support/sine_cosine.h"

namespace Nimbrel {

class BlockTeam;
class CoreBlock;
class CoreBlockStore;
class GateQueue;
struct GateMatrix;
struct SplitProbability;

/// A filter's register. Filters that simulate no amplitudes have one too: read flags, mask
/// extensions and simulator parameters live in its base.
///
/// The dense part holds 2^n amplitudes in `num_blocks` blocks of 2^b. Bit k of a term index is the
/// state of qubit k; the low b bits are the slot in a block, the others the block's number.
///
/// Owned by its filter and used only by the thread that runs a dispatcher or a wrapper (the
/// submitter). It owns its blocks, each with a worker thread when `use_threads`, and the store.
/// Between calls all blocks are idle. Angles are in degrees. Every operation on amplitudes throws
/// when there is no register.
///
/// The four arguments of a gate: `target_mask`, each set bit a gate of its own; `cond_mask`, the
/// controls; `cond_neg_mask`, those controls that must be 0; `cond_flag`, the classical condition.
/// Bits outside the register are dropped.
class QPU : public QPU_Base {
  public:
    /// A register without qubits, with the simulator parameters at their defaults.
    QPU(unsigned long qubits, OpFilter* owning_filter);
    ~QPU() override;

    /// Flags `first`, `first + 1`, ... as bits 0, 1, ... of the result. Throws for more flags than
    /// the result has bits.
    unsigned long fetch_read_result(long first, unsigned long count) override;

    /// Stores the NAND of two flags under a positive `dest_flag`, their AND under a negative one.
    void flag_nand(long flag_a, long flag_b, long cond_flag, long dest_flag);

    // Set-up and waiting: setup.cpp.

    /// Sizes the register and puts it into its start state, or adopts `buffer`, of 2^n
    /// amplitudes, as its state. Throws when the state vector is over the limit; returns false,
    /// with a printed report, when memory runs out.
    bool reset(unsigned long qubits, complex_t* buffer);
    void deallocate();
    /// Lets waiting gates act, and waits until all blocks are idle.
    void finish();
    /// Waits for the blocks only: gates that wait go on waiting.
    void removable_finish();
    bool self_check(int line);
    void verify_allocated() const;

    /// Gates called between these two may wait for their arithmetic until something looks at the
    /// amplitudes. On a caller's memory none waits after the end.
    void begin_records() { in_records = true; }
    void end_records();
    bool lets_gates_wait() const { return waiting_gates != nullptr && in_records && gates_wait; }

    // State primitives: state.cpp.
    double peek_total_probability();
    /// Scales the state to norm 1 and returns the norm squared it had; a norm of 0 stays.
    double normalize();
    void scale_probability(double factor);
    void set_random(bool normalize_after);
    void set_zero();
    void set_zero_mask(unsigned long mask);
    void set_value(unsigned long index, const complex_t& value);
    complex_t get_value(unsigned long index) const;

    // Gates: gates.cpp.
    void hadamard(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                  long cond_flag);
    /// `matrix` is row-major: m00, m01, m10, m11; so it is for `real2x2`.
    void complex2x2(const complex_t* matrix, unsigned long target_mask, unsigned long cond_mask,
                    unsigned long cond_neg_mask, long cond_flag);
    void real2x2(const double* matrix, unsigned long target_mask, unsigned long cond_mask,
                 unsigned long cond_neg_mask, long cond_flag);
    void cnot(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
              long cond_flag);
    void op_not(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                long cond_flag);
    void lelbow(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                long cond_flag);
    void relbow(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                long cond_flag);
    void cz(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
            long cond_flag);
    void phase(double angle, unsigned long target_mask, unsigned long cond_mask,
               unsigned long cond_neg_mask, long cond_flag);
    /// Exchanges the two lowest targets.
    void cswap(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
               long cond_flag);

    // Gates by matrix: matrices.cpp.
    void rootx(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
               long cond_flag);
    void rootx_inv(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                   long cond_flag);
    void rooty(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
               long cond_flag);
    void rooty_inv(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                   long cond_flag);
    void y(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
           long cond_flag);
    void rx(double angle, unsigned long target_mask, unsigned long cond_mask,
            unsigned long cond_neg_mask, long cond_flag);
    void ry(double angle, unsigned long target_mask, unsigned long cond_mask,
            unsigned long cond_neg_mask, long cond_flag);
    void rz(double angle, unsigned long target_mask, unsigned long cond_mask,
            unsigned long cond_neg_mask, long cond_flag);
    /// An X rotation followed by a phase on the 1 state, in one matrix.
    void rxz(double x_angle, double phase_angle, unsigned long target_mask, unsigned long cond_mask,
             unsigned long cond_neg_mask, long cond_flag);

    // Programs of other gates: gate_sequences.cpp.

    /// `ppr`, gate by gate; the empty product rotates qubit 0.
    void ppr_as_gates(double angle, unsigned long x_mask, unsigned long z_mask, long cond_flag);
    /// `ppm`, gate by gate, with a read in the middle; stores no read flag.
    unsigned long ppm_as_gates(int sign, unsigned long x_mask, unsigned long z_mask,
                               long cond_flag);
    /// Fourier transform of the masked qubits without the final reversal; with `measure` reads each
    /// qubit when it is done and returns what was read, bits at their qubits' positions.
    unsigned long QFT(unsigned long mask, bool measure, bool top_down, bool unused);

    // Pauli products, X and Z masks, a qubit in both a Y: pauli.cpp, and
    // pauli_batch.cpp for `pcp`.

    /// Applies cos(angle) - i sin(angle) P.
    void ppr(double angle, unsigned long x_mask, unsigned long z_mask, unsigned long cond_mask,
             unsigned long cond_neg_mask, long cond_flag);
    /// Probability of the outcome +1; 0 for the empty product.
    double pps(unsigned long x_mask, unsigned long z_mask);
    /// Measures P and returns 0 for +1 and 1 for -1, inverted for a `sign` of -1.
    unsigned long ppm(int sign, unsigned long x_mask, unsigned long z_mask, long cond_flag,
                      long read_flag);
    /// Collects product k of N, `angle` being N * 1000 + k; the last one runs the batch. Throws for
    /// products that do not commute, and for a last one that comes before the others.
    void pcp(double angle, unsigned long x_mask, unsigned long z_mask, long cond_flag);

    // Measurement and writing: measure.cpp.

    /// Measures the masked qubits, stores them from `read_flag` on and returns them, bits at their
    /// qubits' positions.
    unsigned long read(unsigned long target_mask, long cond_flag, unsigned long read_flag);
    /// Forces the masked qubits to `value`, by measuring and flipping unless all are masked. Throws
    /// for a whole-register value above the register.
    void write(unsigned long value, unsigned long target_mask, long cond_flag,
               unsigned long read_flag);
    void collapse(unsigned long mask, unsigned long value);
    /// Throws when no term matches; the state is zero then.
    void postselect_sv(unsigned long value, unsigned long mask);
    /// `limit` above 0 lets each block stop as soon as its own sum reaches it.
    double peek_read_probability_sv(unsigned long value, unsigned long mask, double limit);
    unsigned long get_random_term_index();
    /// Queues an event named `name` unless the masked qubits hold `value`, within 0.00001.
    void assert_value(unsigned long value, unsigned long mask, const char* name,
                      unsigned long event_arg, long cond_flag);

    // State transfer, arrays in term order: transfer.cpp, slices.cpp,
    // print.cpp.
    void pull_state_sv(complex_t* dest, unsigned long length);
    /// The heaviest slice over the masked qubits, 2^popcount(mask) amplitudes, not normalised.
    /// Appends to `message` when the slices differ, which means entanglement.
    void pull_state_specific_sv(std::string& message, complex_t* dest, unsigned long mask,
                                unsigned long length);
    /// Replaces the state, or the masked qubits' part of it. `mask` must be one run of qubits.
    void push_state_sv(const complex_t* source, unsigned long mask, unsigned long length);
    bool check_state(const complex_t* expected, double tolerance, bool flag) const;
    void peek_n_biggest_terms(unsigned long count, unsigned long* indices, complex_t* amplitudes);
    void peek_value(unsigned long index, complex_t* dest) const;
    /// Shows `max_values` + 1 terms at most, of probability `threshold` or more; all, zeros
    /// included, for a threshold that is not positive.
    std::string print_state_vector_to_string(int line, double threshold,
                                             unsigned long max_values) const;
    void print_state_vector(int line, double threshold, unsigned long max_values) const;

    // Set once.
    bool memory_pinned = false;  ///< nothing sets it
    // Shape of the register.
    unsigned long num_terms = 0;
    unsigned long num_block_qubits = 0;
    unsigned long terms_per_block = 0;
    bool use_opencl = false;
    bool finish_each_op = true;  ///< never changed: every gate returns with all blocks idle
    bool use_threads = false;
    unsigned long num_blocks = 0;
    unsigned long qubit_mask = 0;
    unsigned long block_slot_mask = 0;
    unsigned long block_number_mask = 0;

    unsigned long op_count = 0;          ///< operations issued since the reset
    unsigned long classical_qubits = 0;  ///< qubits last left in a known classical state
    // Gates of records that wait for their arithmetic. Tests set the first two; results do not
    // depend on them.
    bool gates_wait = true;           ///< false makes every gate act at once
    unsigned long waits_from_qubits;  ///< smallest register whose gates wait, as of its reset
    bool in_records = false;          ///< between `begin_records` and `end_records`
    std::unique_ptr<GateQueue> waiting_gates;  ///< null for a register too small to gain from it
    CoreBlock** blocks = nullptr;              ///< null when there is no register
    CoreBlockStore* block_store = nullptr;
    std::vector<unsigned long> pcp_x_masks;  ///< the batch that `pcp` collects
    std::vector<unsigned long> pcp_z_masks;

  private:
    struct ResetParameters;

    // Steps of a reset: setup.cpp.
    ResetParameters read_parameters(unsigned long qubits);
    void set_sizes();
    /// Returns false, with a printed report, when there is no memory.
    bool make_store(complex_t* buffer);
    /// Leaves no register behind when it throws.
    void make_blocks();
    void enter_start_state(bool randomized);

    /// Whether an operation with this classical condition acts; throws when there is no register.
    bool acts(long cond_flag) const {
        verify_allocated();
        return flag_condition(cond_flag);
    }
    void apply_matrix(const GateMatrix& matrix, unsigned long target_mask, unsigned long cond_mask,
                      unsigned long cond_neg_mask);
    void root_gate(const GateMatrix& matrix, unsigned long target_mask, unsigned long cond_mask,
                   unsigned long cond_neg_mask, long cond_flag);

    // The first `size` products that `pcp` collected: pauli_batch.cpp.
    void check_batch(unsigned long size) const;
    void run_batch(unsigned long size, long cond_flag);
    void run_subset(double angle, unsigned long size, unsigned long without, long cond_flag);

    /// A flag as an operand of `flag_nand`, where -1 is the inverse of the constant 1.
    bool flag_operand(long flag) const;

    // Steps of a measurement: measure.cpp.
    /// Draws, collapses and normalises; returns the outcome, bits at their qubits' positions.
    unsigned long measure(unsigned long targets);
    unsigned long measure_slot_bit(unsigned long bit);
    /// Draws a term from the blocks' sums, which add up to `total`.
    unsigned long draw_term_index(double total);

    // Sums over the register: state.cpp.
    /// Sums each whole block into `block_sums` and returns their total.
    double sum_whole_blocks();
    /// Waits for the blocks in order and adds the results of their tasks.
    double add_block_sums();
    /// Scales a state of this squared norm. Leaves: the blocks may be at work.
    void scale_to_norm_one(double norm);

    /// Multiplies `source` into the state as the masked qubits' factor: slices.cpp.
    void push_factor(const complex_t* source, unsigned long mask);

    SineCosineMemo angles;            ///< of the last rotation
    std::unique_ptr<BlockTeam> team;  ///< created before the blocks, destroyed after them

    // Results of the tasks of one sum, one entry a block, zero where a block had no task. Members,
    // so that a measurement allocates nothing.
    std::vector<double> block_sums;
    std::vector<SplitProbability> block_splits;
};

}  // namespace Nimbrel

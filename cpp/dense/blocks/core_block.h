/// `CoreBlock`, one block of a dense register and, when threads are on, the worker of that block.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "support/complex.h"

namespace Nimbrel {

class BlockTeam;
class CoreBlockStore;
class CoreBlockOpsOCLContext;  // has no definition: no accelerator exists

/// Number of a task in the hand-over from the submitting thread to a worker.
enum TaskID : int {
    TASK_NONE = 0,
    TASK_EXIT = 1,
    TASK_SELF_CHECK = 2,
    TASK_SET_ZERO = 3,
    TASK_SET_RANDOM = 4,
    TASK_SET_ZERO_MASK = 5,
    TASK_COLLAPSE = 6,
    TASK_PEEK_READ_PROBABILITY = 7,
    TASK_GET_INDEX_FROM_PROBABILITY = 8,
    TASK_SCALE_PROBABILITY = 9,
    TASK_OP_NOT = 10,
    TASK_OP_X_MULTI = 11,
    TASK_OP_HADAMARD = 12,
    TASK_OP_PPR = 13,
    TASK_OP_PPM = 14,
    TASK_OP_PPS = 15,
    TASK_OP_COMPLEX2X2 = 16,
    TASK_OP_REAL2X2 = 17,
    TASK_OP_CNOT = 18,
    TASK_OP_CPHASE = 19,
    TASK_OP_CZ = 20,
};

/// Sums of probabilities over a block and over its two halves by one bit.
struct SplitProbability {
    double total;
    double clear;
    double set;
};

/// One block of 2^b amplitudes and the operations on it.
///
/// The register owns its blocks; a block owns its worker thread and borrows its memory from the
/// store. Masks are block-local, over the slot index, unless said otherwise.
///
/// The submitting thread calls every method but the `_worker` functions. With threads on, an
/// operation leaves its task in the block and returns; `finish` waits, and results stand behind
/// their pointers after it. Fields other than `task_id` are touched only while no task is in the
/// block, or by the thread that runs the task, which also owns the buddy's fields meanwhile.
class CoreBlock {
  public:
    CoreBlock(unsigned long number, unsigned long block_qubits, CoreBlockStore* store,
              CoreBlockOpsOCLContext* context, bool threads, bool verbosely,
              BlockTeam* block_team = nullptr);
    ~CoreBlock();
    CoreBlock(const CoreBlock&) = delete;
    CoreBlock& operator=(const CoreBlock&) = delete;

    // The hand-over.
    void start_worker(TaskID task);
    void wait_for_worker(bool wait_until_ready);

    /// Waits until this block and, while a pair is at work, its buddy are idle.
    void finish();

    /// Pairs this block, whose number has the target bit clear, with the one that has it set. The
    /// next operation with a target of 0 works on both and ends the pair.
    void set_op_buddy(CoreBlock* buddy);

    /// Exchanges the memory of two blocks without moving an amplitude.
    void swap_blocks(CoreBlock* other);

    void lock(bool read, CoreBlock* buddy);
    void unlock(bool write_back, CoreBlock* buddy);

    /// Prints what is wrong or, when verbose, one line about the block. Always true.
    bool self_check(int line);

    // Tasks: gates. A slot takes part when slot & cond_mask == cond_mask ^ cond_neg_mask.
    void op_not(unsigned long target_mask);
    void op_cnot(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask);
    void op_hadamard(unsigned long target_mask, unsigned long cond_mask,
                     unsigned long cond_neg_mask);
    /// `matrix` is row-major and must outlive the task; the same holds for `op_real2x2`.
    void op_complex2x2(unsigned long target_mask, unsigned long cond_mask, const complex_t* matrix,
                       unsigned long cond_neg_mask);
    void op_real2x2(unsigned long target_mask, unsigned long cond_mask, const double* matrix,
                    unsigned long cond_neg_mask);
    void op_phase(unsigned long cond_mask, double im, double re, unsigned long cond_neg_mask);
    void op_cz(unsigned long cond_mask, unsigned long cond_neg_mask);
    /// `x_mask` and `z_mask` span the whole register; so they do for `op_ppm` and `op_pps`.
    void op_ppr(unsigned long x_mask, unsigned long z_mask, unsigned long cond_mask, double sine,
                double cosine, unsigned long cond_neg_mask);
    void op_ppm(unsigned long x_mask, unsigned long z_mask, unsigned long measured);
    void op_pps(unsigned long x_mask, unsigned long z_mask, double* result);
    void op_x_multi(unsigned long target_bits, unsigned long condition_bits);

    // Tasks: probabilities and contents.
    void peek_read_probability(double* out, unsigned long value, unsigned long mask, double limit);
    /// The sum over all slots, with the sums over those that have `bit` clear and set beside it:
    /// what the block's sum will be after a collapse on that bit. Each is the same to the last bit
    /// as a sum of its own.
    void peek_split_probability(SplitProbability* out, unsigned long bit);
    void get_index_from_probability(double target, unsigned long* out);
    void scale_probability(double factor);
    void collapse(unsigned long mask, unsigned long value);
    void set_zero();
    void set_zero_mask(unsigned long mask);
    void set_random();

    // On the calling thread, which has called `finish` before.
    void set_value(unsigned long slot, const complex_t& value);
    complex_t get_value(unsigned long slot);
    void get_all_values(complex_t* out);
    void set_all_values(const complex_t* values);
    bool check_all_values(const complex_t* values, double tolerance);
    void peek_n_biggest_terms(unsigned long n, unsigned long* indices, complex_t* values);

    unsigned long thread_id;   ///< number of the block in its register
    unsigned long store_slot;  ///< exchanged by `swap_blocks`
    CoreBlock* op_buddy = nullptr;
    unsigned long num_block_qubits;
    CoreBlockStore* block_store;
    CoreBlockOpsOCLContext* ocl_context;  ///< always null
    bool use_threads;                     ///< a worker thread exists
    bool verbose;
    complex_t* block_data = nullptr;  ///< refreshed by every `lock`
    unsigned long num_terms;
    void* accelerator_handle = nullptr;
    std::thread worker_thread;
    std::mutex task_mutex;         ///< held by whoever runs the task
    std::condition_variable wake;  ///< on which the idle worker sleeps
    std::atomic<int> task_id{TASK_NONE};

    /// Arguments of the task in the block, each field shared by the tasks named.
    struct TaskArguments {
        int line = 0;                               ///< self check
        unsigned long zero_mask = 0;                ///< set_zero_mask
        unsigned long mask = 0;                     ///< collapse, peek_read_probability
        unsigned long value = 0;                    ///< collapse, peek_read_probability
        double* result = nullptr;                   ///< peek_read_probability, pps
        SplitProbability* split = nullptr;          ///< peek_read_probability, instead of `result`
        double probability_target = 0.0;            ///< get_index_from_probability
        unsigned long* result_index = nullptr;      ///< get_index_from_probability
        double scale = 0.0;                         ///< scale_probability
        unsigned long target_mask = 0;              ///< gates with a target, x_multi
        const complex_t* complex_matrix = nullptr;  ///< complex2x2
        const double* real_matrix = nullptr;        ///< real2x2
        unsigned long cond_mask = 0;                ///< gates with conditions
        unsigned long cond_neg_mask = 0;            ///< gates with conditions
        unsigned long x_mask = 0;                   ///< ppr, ppm, pps
        unsigned long z_mask = 0;                   ///< ppr, ppm, pps
        unsigned long measured = 0;                 ///< ppm
        double first_factor = 0.0;                  ///< imaginary part of a phase, sine of a ppr
        double second_factor = 0.0;                 ///< real part of a phase, cosine of a ppr
        double limit = 0.0;                         ///< peek_read_probability
    };
    TaskArguments arguments;

    std::atomic<bool> worker_ready{false};  ///< the worker has come to its loop once
    bool all_zero =
        false;  ///< every amplitude is known to be zero; cleared before any other is written
    int lock_count = 0;  ///< nesting depth of `lock`

    /// The worker's place among the register's workers, null for a block on its own.
    BlockTeam* team;
    std::atomic<bool> worker_awake{true};  ///< runs or looks for tasks, as against sleeping
    bool poked = false;  ///< woken to look for tasks anywhere; guarded by `task_mutex`

    /// Runs the task in the block on the calling thread if nobody has begun it yet.
    bool run_if_posted();

  private:
    void worker_loop();
    void look_for_tasks();
    void sleep_until_called(std::unique_lock<std::mutex>& guard);
    void run_posted_task();
    bool spin_until_idle() const;

    void run_task(int task);
    void run_gate_task(int task);

    /// Whether a task is long enough for another thread to be worth its notice.
    bool worth_handing_over() const;
    void prepare_submission();
    void submit(TaskID task);
    void prepare_pair_submission();

    // What each task does, on whichever thread runs it.
    void self_check_worker(int line);
    void set_zero_worker();
    void set_random_worker();
    void set_zero_mask_worker(unsigned long mask);
    void collapse_worker(unsigned long mask, unsigned long value);
    void peek_read_probability_worker(double* out, unsigned long value, unsigned long mask,
                                      double limit);
    void peek_split_probability_worker(SplitProbability* out, unsigned long bit);
    void get_index_from_probability_worker(double target, unsigned long* out);
    void scale_probability_worker(double factor);
    void op_not_worker(unsigned long target_mask);
    void op_x_multi_worker(unsigned long target_bits, unsigned long condition_bits);
    void op_had_worker(unsigned long target_mask, unsigned long cond_mask,
                       unsigned long cond_neg_mask);
    void op_ppr_worker(unsigned long x_mask, unsigned long z_mask, unsigned long cond_mask,
                       double sine, double cosine, unsigned long cond_neg_mask);
    void op_ppm_worker(unsigned long x_mask, unsigned long z_mask, unsigned long measured);
    void op_pps_worker(unsigned long x_mask, unsigned long z_mask, double* result);
    void op_complex2x2_worker(unsigned long target_mask, unsigned long cond_mask,
                              const complex_t* matrix, unsigned long cond_neg_mask);
    void op_real2x2_worker(unsigned long target_mask, unsigned long cond_mask, const double* matrix,
                           unsigned long cond_neg_mask);
    void op_cnot_worker(unsigned long target_mask, unsigned long cond_mask,
                        unsigned long cond_neg_mask);
    void op_cphase_worker(unsigned long cond_mask, double im, double re,
                          unsigned long cond_neg_mask);
    void op_cz_worker(unsigned long cond_mask, unsigned long cond_neg_mask);

    /// The common frame of the gates with a target: locks, walks the pairs of this block or of it
    /// and its buddy, unlocks, and ends the pair.
    template <typename PairOp>
    void run_pair_gate(unsigned long target_mask, unsigned long cond_mask,
                       unsigned long cond_neg_mask, PairOp& op);
};

}  // namespace Nimbrel

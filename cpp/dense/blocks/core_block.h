/// `CoreBlock`: one block of a dense register and, when threads are on, that block's worker thread.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "dense/blocks/kernels/gates.h"
#include "dense/blocks/kernels/pauli.h"
#include "dense/blocks/kernels/probabilities.h"
#include "dense/blocks/kernels/slot_condition.h"
#include "dense/blocks/store.h"
#include "support/complex.h"

namespace Nimbrel {

class BlockTeam;
class GateQueue;
class CoreBlockOpsOCLContext;  // never defined: there is no accelerator back end

/// Number of a task, as the submitter posts it to a worker.
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

/// One block of 2^b amplitudes and the operations on it.
///
/// The register owns its blocks. A block owns its worker thread and borrows its memory from the
/// store. Masks select bits of the slot index, except where a comment says otherwise.
///
/// The submitting thread calls every method except the `_worker` functions. With threads on, an
/// operation posts its task and returns. `finish` waits for it; a result is behind its pointer
/// after that. Fields other than `task_id` are touched only while no task is posted, or by the
/// thread that runs the task, which then also owns the fields of the buddy.
class CoreBlock {
  public:
    CoreBlock(unsigned long number, unsigned long block_qubits, CoreBlockStore* store,
              CoreBlockOpsOCLContext* context, bool threads, bool verbosely,
              BlockTeam* block_team = nullptr);
    ~CoreBlock();
    CoreBlock(const CoreBlock&) = delete;
    CoreBlock& operator=(const CoreBlock&) = delete;

    // Posting tasks and waiting for them: worker.cpp.
    void start_worker(TaskID task);
    void wait_for_worker(bool wait_until_ready);

    /// Lets the register's waiting gates act, and waits until this block is idle, and its buddy
    /// while they are a pair.
    void finish();

    /// The same without the waiting gates, which may go on waiting while blocks are exchanged.
    void finish_tasks();

    /// Pairs this block, whose number has the target bit clear, with the block that has it set. The
    /// next operation with a target of 0 works on both and ends the pair.
    void set_op_buddy(CoreBlock* buddy);

    /// Exchanges the memory of two blocks without moving an amplitude.
    void swap_blocks(CoreBlock* other);

    /// Points `block_data` of this block and its buddy to their amplitudes for one task. Waiting
    /// gates act before, but in `lock_memory`, which tasks call.
    void lock(bool read, CoreBlock* buddy) {
        settle();
        lock_memory(read, buddy);
    }
    void lock_memory(bool read, CoreBlock* buddy) {
        if (!block_store->all_in_ram()) return lock_paged(read, buddy);
        block_data = block_store->request_block(store_slot);
        if (buddy != nullptr) buddy->block_data = block_store->request_block(buddy->store_slot);
        ++lock_count;
    }
    void unlock(bool write_back, CoreBlock* buddy) {
        --lock_count;
        if (!block_store->all_in_ram()) unlock_paged(write_back, buddy);
    }

    /// Points `block_data` to this block's amplitudes, which an exchange may have moved.
    void locate();

    /// Prints what is wrong or, when verbose, one line about the block. Always true.
    bool self_check(int line);

    // Gates: tasks.cpp. Arguments are copied, matrices too; only results must outlive the task.
    void op_not(unsigned long target_mask);
    void op_cnot(unsigned long target_mask, SlotCondition condition);
    void op_hadamard(unsigned long target_mask, SlotCondition condition);
    void op_complex2x2(unsigned long target_mask, SlotCondition condition,
                       const GateMatrix& matrix);
    void op_real2x2(unsigned long target_mask, SlotCondition condition, const GateMatrix& matrix);
    void op_phase(SlotCondition condition, double im, double re);
    void op_cz(SlotCondition condition);
    /// `x_mask` and `z_mask` span the whole register, also for `op_ppm` and `op_pps`.
    void op_ppr(unsigned long x_mask, unsigned long z_mask, SlotCondition condition, double sine,
                double cosine);
    void op_ppm(unsigned long x_mask, unsigned long z_mask, unsigned long measured);
    void op_pps(unsigned long x_mask, unsigned long z_mask, double* result);
    void op_x_multi(unsigned long target_bits, unsigned long condition_bits);

    // Probabilities and contents: tasks.cpp.
    void peek_read_probability(double* out, unsigned long value, unsigned long mask, double limit);
    /// The sum over all slots and, in the same pass, the sums over those with `bit` clear and set,
    /// which are the block's sums after a collapse on that bit. Each has the bits of a separate
    /// sum.
    void peek_split_probability(SplitProbability* out, unsigned long bit);
    void get_index_from_probability(double target, unsigned long* out);
    void scale_probability(double factor);
    void collapse(unsigned long mask, unsigned long value);
    void set_zero();
    void set_zero_mask(unsigned long mask);
    void set_random();

    // On the calling thread: transfer.cpp. Requires: `finish` was called.
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
    complex_t* block_data = nullptr;  ///< set by every `lock`
    unsigned long num_terms;
    void* accelerator_handle = nullptr;
    std::thread worker_thread;
    std::mutex task_mutex;         ///< held by the thread that runs the task
    std::condition_variable wake;  ///< the idle worker sleeps on it
    std::atomic<int> task_id{TASK_NONE};

    // Arguments of the tasks, one struct for each group of tasks, in a union: clearing the fields
    // of all tasks would take as long as a gate on four qubits.
    struct MaskArguments {
        unsigned long mask;
        unsigned long value = 0;
    };
    struct ReadArguments {
        double* result = nullptr;
        SplitProbability* split = nullptr;  ///< used in place of `result` when not null
        unsigned long value = 0;
        unsigned long mask;
        double limit = 0.0;
    };
    struct IndexArguments {
        double target;
        unsigned long* result;
    };
    struct GateArguments {
        unsigned long target_mask;
        SlotCondition condition = {};
    };
    struct MatrixArguments {
        unsigned long target_mask;
        SlotCondition condition;
        const GateMatrix* matrix;  ///< the caller's, or `posted_matrix` for a posted task
    };
    struct PhaseArguments {
        SlotCondition condition;
        double im;
        double re;
    };
    struct ProductArguments {
        unsigned long x_mask;
        unsigned long z_mask;
        SlotCondition condition = {};  ///< ppr
        double sine = 0.0;             ///< ppr
        double cosine = 0.0;           ///< ppr
        unsigned long measured = 0;    ///< ppm
        double* result = nullptr;      ///< pps
    };
    struct LineArguments {
        int line;
    };
    struct ScaleArguments {
        double factor;
    };
    union TaskArguments {
        TaskArguments() : none() {}
        // Constructors, because a designated initialiser of a union clears all of its bytes.
        TaskArguments(const LineArguments& a) : self_check(a) {}  // NOLINT
        TaskArguments(const MaskArguments& a) : mask(a) {}        // NOLINT
        TaskArguments(const ReadArguments& a) : read(a) {}        // NOLINT
        TaskArguments(const IndexArguments& a) : index(a) {}      // NOLINT
        TaskArguments(const ScaleArguments& a) : scale(a) {}      // NOLINT
        TaskArguments(const GateArguments& a) : gate(a) {}        // NOLINT
        TaskArguments(const MatrixArguments& a) : matrix(a) {}    // NOLINT
        TaskArguments(const PhaseArguments& a) : phase(a) {}      // NOLINT
        TaskArguments(const ProductArguments& a) : product(a) {}  // NOLINT

        char none;  ///< set_zero, set_random
        LineArguments self_check;
        MaskArguments mask;        ///< set_zero_mask, collapse
        ReadArguments read;        ///< peek_read_probability
        IndexArguments index;      ///< get_index_from_probability
        ScaleArguments scale;      ///< scale_probability
        GateArguments gate;        ///< not, cnot, hadamard, cz, x_multi
        MatrixArguments matrix;    ///< complex2x2, real2x2
        PhaseArguments phase;      ///< cphase
        ProductArguments product;  ///< ppr, ppm, pps
    };
    TaskArguments arguments;   ///< of the posted task
    GateMatrix posted_matrix;  ///< of the posted task

    std::atomic<bool> worker_ready{false};  ///< the worker has reached its loop once
    /// Every amplitude is known to be zero. Cleared before a nonzero amplitude is written.
    bool all_zero = false;
    int lock_count = 0;  ///< nesting depth of `lock`

    GateQueue* waiting_gates = nullptr;  ///< of the register; null if none can wait
    BlockTeam* team;  ///< the workers of this register; null for a block outside a team
    std::atomic<bool> worker_awake{true};  ///< false while the worker sleeps
    bool poked = false;  ///< woken to run tasks of other blocks; guarded by `task_mutex`

    /// Runs the posted task on the calling thread, unless another thread has begun it.
    bool run_if_posted();

  private:
    // The inactive disk tier's part of `lock` and `unlock`: core_block.cpp.
    void lock_paged(bool read, CoreBlock* buddy);
    void unlock_paged(bool write_back, CoreBlock* buddy);

    void worker_loop();
    void look_for_tasks();
    void sleep_until_called(std::unique_lock<std::mutex>& guard);
    void run_posted_task();
    bool spin_until_idle() const;

    void run_task(int task, const TaskArguments& a);
    void run_gate_task(int task, const TaskArguments& a);

    /// Whether the block is large enough to gain from a second thread.
    bool worth_handing_over() const;
    void settle() const;
    void wait_until_idle();
    void wait_until_pair_idle();
    void submit_matrix(TaskID task, unsigned long target_mask, SlotCondition condition,
                       const GateMatrix& matrix);
    /// Posts a task to the worker, or runs it on this thread. Requires: an idle block.
    void post(TaskID task, const TaskArguments& task_arguments);
    /// Waits for the last task and posts the next.
    void submit(TaskID task, const TaskArguments& task_arguments);
    /// The same for an operation that may work on a pair.
    void submit_pair(TaskID task, const TaskArguments& task_arguments);

    // One function a task, on the thread that runs it: task_workers.cpp.
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
    void op_had_worker(unsigned long target_mask, SlotCondition condition);
    void op_ppr_worker(unsigned long x_mask, unsigned long z_mask, SlotCondition condition,
                       double sine, double cosine);
    void op_ppm_worker(unsigned long x_mask, unsigned long z_mask, unsigned long measured);
    void op_pps_worker(unsigned long x_mask, unsigned long z_mask, double* result);
    void op_complex2x2_worker(unsigned long target_mask, SlotCondition condition,
                              const GateMatrix& matrix);
    void op_real2x2_worker(unsigned long target_mask, SlotCondition condition,
                           const GateMatrix& matrix);
    void op_cnot_worker(unsigned long target_mask, SlotCondition condition);
    void op_cphase_worker(SlotCondition condition, double im, double re);
    void op_cz_worker(SlotCondition condition);

    /// Locks this block and its buddy, applies a gate with a target, unlocks and ends the pair.
    void run_pair_gate(const SlotGate& gate);
    /// The same for a Pauli product on this block, or on this block and its buddy.
    template <typename Kernel>
    void run_product(unsigned long x_mask, unsigned long z_mask, bool write_back, Kernel&& kernel);
};

}  // namespace Nimbrel

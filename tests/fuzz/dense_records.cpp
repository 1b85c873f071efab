// The dense filter's records and operations. Each input runs on two registers that differ in one
// setting which must not change a bit: gates that wait, vector width, memory, blocks, threads.
#include <cmath>
#include <span>

#include "dense/blocks/core_block.h"
#include "dense/blocks/gate_queue.h"
#include "dense/blocks/kernels/width.h"
#include "dense/dense_filter.h"
#include "filter/opcodes.h"
#include "owned_filter.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Fuzzing;

struct Setting {
    unsigned long block_qubits = 0;  ///< 0: one block
    bool threads = false;
    bool gates_wait = false;
    bool small_tiles = false;
    bool wide = false;
    bool lent = false;
    Cut cut = Cut::as_decoded;
};

/// Two settings and what both are given.
struct Comparison {
    unsigned long qubits = 1;
    Setting first;
    Setting second;
    bool sums = true;    ///< the blocks are the same, so that sums of probabilities are too
    bool random = true;  ///< no thread takes a random number
    const char* name = "";
};

constexpr unsigned long sizes[] = {0, 1, 2, 3, 4, 1, 2, 3, 40, 59, 60, 63, 64, 65, 1UL << 32, ~0UL};

// The order is part of the corpus.
Comparison decode_comparison(ByteReader& in) {
    const unsigned kind = in.byte();
    const unsigned size = in.byte();
    const bool seldom = (size & 0xF0) == 0xF0;
    const auto first_cut = (kind & 0x10) != 0 ? Cut::single : Cut::as_decoded;
    Comparison made;
    made.qubits = 1 + size % 6;
    unsigned long block_qubits = (kind >> 5) % (made.qubits + 1);
    made.first.cut = first_cut;
    switch (kind % 16) {
        case 5:
        case 6:
        case 7:
            made.name = "vector widths";
            made.qubits = 7 + size % 2;
            block_qubits = (kind & 0x20) != 0 ? 7 : 0;
            made.second.wide = true;
            made.second.gates_wait = made.first.gates_wait = (kind & 0x40) != 0;
            break;
        case 8:
        case 9:
            made.name = "waiting gates on lent memory";
            made.first.lent = made.second.lent = true;
            made.second.gates_wait = true;
            break;
        case 10:
        case 11:
        case 12:
            made.name = "block sizes";
            made.sums = false;
            made.second.gates_wait = (kind & 0x20) != 0;
            made.second.block_qubits = block_qubits;
            block_qubits = 0;
            break;
        case 13:
            if (!seldom) break;
            made.name = "threads";
            made.random = false;
            made.qubits = 3 + size % 4;
            block_qubits = made.qubits - 1 - (kind >> 5) % 2;
            made.second.threads = true;
            made.second.gates_wait = (kind & 0x80) != 0;
            break;
        case 14:
            if (!seldom) break;
            made.name = "tiles";
            made.qubits = 11;
            block_qubits = (kind & 0x20) != 0 ? 8 : 0;
            made.second.gates_wait = made.second.small_tiles = true;
            break;
        default:
            made.name = "waiting gates";
            made.second.gates_wait = true;
    }
    if (made.sums) made.first.block_qubits = made.second.block_qubits = block_qubits;
    return made;
}

/// Whether an opcode, or an operation, adds up probabilities or takes random numbers.
bool is_exact(const QPUOp& op) {
    switch (op.opcode) {
        case OP_READ:
        case OP_WRITE:
        case OP_CLEAR:
        case OP_FREE:
        case OP_PPM:
            return false;
        default:
            return true;
    }
}

bool is_exact(const CallArguments& arguments) {
    switch (arguments.call) {
        case Call::set_random:
        case Call::normalize:
        case Call::pps:
        case Call::postselect:
        case Call::push_state:  // of some qubits, which are measured
        case Call::peek_read_probability:
        case Call::set_parameter:
            return false;
        default:
            return true;
    }
}

class Run {
  public:
    Run(const Comparison& comparison, const Setting& setting)
        : comparison_(comparison), setting_(setting), seen_(comparison.sums) {}

    Observation of(Scenario& scenario) {
        use_wide_kernels(setting_.wide);
        QPU& qpu = *filter_->qpu;
        qpu.gates_wait = setting_.gates_wait;
        // A queue of small tiles is made below, so that the first reset need not make one.
        qpu.waits_from_qubits = setting_.gates_wait && !setting_.small_tiles ? 1 : ~0UL;
        qpu.sim_params["num_block_qubits"] =
            setting_.block_qubits == 0 ? comparison_.qubits : setting_.block_qubits;
        qpu.sim_params["async"] = setting_.threads ? 1 : 0;
        enter_start_state();
        RunOptions options{.cut = setting_.cut};
        options.makes = [this](const CallArguments& call) { return makes(call); };
        run_scenario(scenario, *filter_, options, seen_);
        observe();
        use_wide_kernels(true);
        return std::move(seen_);
    }

  private:
    void enter_start_state() {
        QPU& qpu = *filter_->qpu;
        if (setting_.lent) {
            lent_.assign(1UL << comparison_.qubits, {0.0, 0.0});
            lent_[0].re = 1.0;
            filter_->override_state_buffer(lent_.data(), comparison_.qubits);
        } else {
            const QPUOp op = reset_record(comparison_.qubits);
            filter_->put_instructions(&op, 1);
        }
        if (setting_.small_tiles) {
            constexpr unsigned long threads_of_small_tiles = 64;
            qpu.waiting_gates = std::make_unique<GateQueue>(
                *qpu.block_store, nullptr, comparison_.qubits, threads_of_small_tiles);
            for (unsigned long i = 0; i < qpu.num_blocks; ++i) {
                qpu.blocks[i]->waiting_gates = qpu.waiting_gates.get();
            }
            qpu.waits_from_qubits = 1;
        }
    }

    bool makes(const CallArguments& call) {
        if (call.call == Call::override_state_buffer) return override_buffer(call);
        if (!comparison_.sums && !is_exact(call)) return false;
        return comparison_.random ||
               (call.call != Call::set_random && call.call != Call::set_parameter);
    }

    /// The arguments' amplitudes become the state. In the run beside they stay the caller's too.
    bool override_buffer(const CallArguments& call) {
        const unsigned long qubits = call.count % 7;
        std::vector<complex_t>& memory = buffers_.emplace_back(call.amplitudes);
        memory.resize(1UL << qubits);
        filter_->override_state_buffer(memory.data(), qubits);
        return false;
    }

    void observe() {
        QPU& qpu = *filter_->qpu;
        add_common_state(*filter_, seen_);
        seen_.add(qpu.op_count);
        seen_.add(qpu.classical_qubits);
        if (qpu.blocks == nullptr) return;
        std::vector<complex_t> state(qpu.num_terms);
        qpu.pull_state_sv(state.data(), state.size());
        seen_.add_amplitudes(state);
        if (!comparison_.sums) return;
        for (unsigned long i = 0; i < qpu.num_blocks; ++i) {
            seen_.add(qpu.blocks[i]->all_zero ? 1 : 0);
            seen_.add(qpu.blocks[i]->store_slot);
        }
    }

    const Comparison& comparison_;
    const Setting& setting_;
    std::vector<complex_t> lent_;
    std::vector<std::vector<complex_t>> buffers_;  ///< live as long as the filter
    OwnedFilter<OpFilter_QPUSim> filter_;
    Observation seen_;
};

/// Whether a gate is defined block by block: its target is also a control, or one of several
/// targets is negated. A block number is tested otherwise than the bits inside a block.
bool depends_on_blocks(const QPUOp& op) {
    const auto controls = op.opcode == OP_PPR   ? static_cast<unsigned long>(op.read_flag)
                          : op.opcode == OP_PCP ? 0
                                                : op.cond_mask;
    return (op.target_mask & (controls | op.cond_neg_mask)) != 0;
}

// A matrix of not-a-numbers makes some of zeros too, and a block of zeros is skipped.
void leave_out_sums(Scenario& scenario) {
    for (Step& step : scenario) {
        std::erase_if(step.records, [](const QPUOp& op) {
            return !is_exact(op) || depends_on_blocks(op) || !(std::fabs(op.angle) < 1e300);
        });
    }
    std::erase_if(scenario,
                  [](const Step& step) { return !step.is_records && !is_exact(step.other); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteReader in(data, size);
    const Comparison comparison = decode_comparison(in);
    Scenario scenario = decode_scenario(in, {.qubits = comparison.qubits, .sizes = sizes});
    if (!comparison.sums) leave_out_sums(scenario);
    const Observation first = Run(comparison, comparison.first).of(scenario);
    const Observation second = Run(comparison, comparison.second).of(scenario);
    require_same(first, second, comparison.name, scenario);
    return 0;
}

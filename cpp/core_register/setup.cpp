#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "core_register/core_register.h"
#include "core_register/layout.h"
#include "dense/blocks/core_block.h"
#include "dense/blocks/gate_queue.h"
#include "dense/blocks/store.h"
#include "dense/blocks/team.h"
#include "support/bits.h"
#include "support/byte_size.h"

namespace Nimbrel {
namespace {

// A reset of any size must end in its report and not in a wrapped shift, so powers stop at the
// largest number.
constexpr unsigned long power_of_two(unsigned long exponent) {
    return exponent < bits_per_word ? 1UL << exponent : ~0UL;
}

constexpr unsigned long low_bits(unsigned long count) {
    return count < bits_per_word ? (1UL << count) - 1 : ~0UL;
}

/// Bytes of 2^qubits amplitudes, as text.
std::string state_size(unsigned long qubits) {
    constexpr unsigned long qubits_of_one_amplitude = 4;
    const bool fits = qubits < bits_per_word - qubits_of_one_amplitude;
    return human_byte_size(fits ? sizeof(complex_t) << qubits : ~0UL);
}

/// Entries of the reservation table. A register with more qubits than a mask has bits never comes
/// to be, so one that is asked for must not claim memory for them.
constexpr std::size_t reservation_entries(unsigned long qubits) {
    return std::min(qubits, bits_per_word);
}

std::string over_limit_text(unsigned long qubits, unsigned long limit) {
    std::ostringstream text;
    text.exceptions(std::ios::badbit);  // without memory the text would be cut short in silence
    text << "RAM size for " << qubits << " qubits requires " << state_gigabytes(qubits) << " GB, "
         << "which exceeds qc.reset(max_ram_size_gb) limit of " << limit << " GB.\n"
         << "To fix this, either increase max_ram_size_gb using qc.reset(), reduce the number of "
            "qubits,\n"
         << "or remove the >>state-vector-sim>>/>>qpu>> filter (possibly replace it with "
            ">>bit-sim>> if applicable)\n";
    return text.str();
}

}  // namespace

/// The simulator parameters, as one reset found them.
struct QPU::ResetParameters {
    LayoutRequest layout;
    unsigned long max_ram_size_gb;
    bool randomized;
    bool use_opencl;
};

QPU::~QPU() { deallocate(); }

bool QPU::reset(unsigned long qubits, complex_t* buffer) {
    const ResetParameters parameters = read_parameters(qubits);
    op_count = 0;
    const unsigned int hardware_threads =
        depends_on_hardware(parameters.layout) ? std::thread::hardware_concurrency() : 0;
    const auto [block_qubits, threads] = decide_layout(parameters.layout, hardware_threads);

    const bool same_shape = qubits == num_qubits && block_qubits == num_block_qubits &&
                            parameters.use_opencl == use_opencl;
    if (buffer == nullptr && same_shape) {
        // Blocks, threads and store stay, whatever the limits say by now: a program that resets
        // often starts no threads. Whatever waits would be overwritten.
        if (waiting_gates != nullptr) waiting_gates->drop();
        qint_table.assign(reservation_entries(num_qubits), 0);
    } else {
        deallocate();
        num_block_qubits = block_qubits;
        use_opencl = parameters.use_opencl;
        num_qubits = qubits;
        use_threads = threads;
        if (buffer == nullptr && is_over_limit(qubits, parameters.max_ram_size_gb)) {
            throw std::runtime_error(over_limit_text(qubits, parameters.max_ram_size_gb));
        }
        set_sizes();
        if (!make_store(buffer)) return false;
        make_blocks();
        clear_all_qints();
    }
    if (buffer == nullptr) enter_start_state(parameters.randomized);
    return self_check(240);
}

QPU::ResetParameters QPU::read_parameters(unsigned long qubits) {
    // Kept, because a name of 16 letters would be allocated at each reset.
    static const std::string block_qubits_key = "num_block_qubits";
    verbose = sim_params["verbose"] != 0;
    ResetParameters parameters{};
    parameters.layout.num_qubits = qubits;
    parameters.layout.verbose = verbose;
    parameters.layout.num_block_qubits = sim_params[block_qubits_key];
    parameters.layout.max_num_threads = sim_params["max_num_threads"];
    parameters.max_ram_size_gb = sim_params["max_ram_size_gb"];
    parameters.layout.async = sim_params["async"] != 0;
    parameters.randomized = sim_params["randomized"] != 0;
    parameters.use_opencl = sim_params["use_opencl"] != 0;
    return parameters;
}

void QPU::set_sizes() {
    qint_table.resize(reservation_entries(num_qubits));
    classical_qubits = 0;
    terms_per_block = power_of_two(num_block_qubits);
    block_slot_mask = low_bits(num_block_qubits);
    num_blocks = power_of_two(num_qubits - num_block_qubits);
    num_terms = power_of_two(num_qubits);
    qubit_mask = low_bits(num_qubits);
    block_number_mask = qubit_mask & ~block_slot_mask;
}

bool QPU::make_store(complex_t* buffer) {
    if (verbose) {
        std::printf(
            "Allocating quantum register (qubits: %d, blocks: %llu, terms: %llu, "
            "total size: %s...\n",
            static_cast<int>(num_qubits), static_cast<unsigned long long>(num_blocks),
            static_cast<unsigned long long>(num_terms), state_size(num_qubits).c_str());
    }
    block_store = new CoreBlockStore(num_block_qubits, num_blocks, 0, buffer, use_threads, verbose);
    if (block_store->self_check(0)) return true;
    std::puts("------------------------------------");
    std::printf(
        "Error: failed to allocate the state vector (qubits: %d, terms: %llu, "
        "total size: %s...\n",
        static_cast<int>(num_qubits), static_cast<unsigned long long>(num_terms),
        state_size(num_qubits).c_str());
    std::puts("(Default serverless backend: max 26 qubits)");
    std::puts("------------------------------------");
    return false;
}

void QPU::make_blocks() {
    // Left over where the memory before was pinned.
    waiting_gates.reset();
    const unsigned long count = num_blocks;
    try {
        if (use_threads) team = std::make_unique<BlockTeam>(count);
        if (num_qubits >= waits_from_qubits && GateQueue::can_hold(num_qubits, num_block_qubits)) {
            const unsigned long threads = use_threads ? std::min(count, team->num_processors()) : 1;
            waiting_gates =
                std::make_unique<GateQueue>(*block_store, team.get(), num_qubits, threads);
        }
        blocks = new CoreBlock*[count]();
        for (unsigned long i = 0; i < count; ++i) {
            // The analyzer takes the array for one of a fixed size; it has `count` entries.
            // NOLINTNEXTLINE(clang-analyzer-security.ArrayBound)
            blocks[i] = new CoreBlock(i, num_block_qubits, block_store, nullptr, use_threads,
                                      verbose, team.get());
            blocks[i]->waiting_gates = waiting_gates.get();
        }
    } catch (...) {
        // Most likely the system has no more threads. Those that run are in nobody's use.
        deallocate();
        throw;
    }
}

void QPU::enter_start_state(bool randomized) {
    if (randomized) {
        set_random(true);
    } else {
        set_zero();
        set_value(0, {1.0, 0.0});
    }
}

void QPU::deallocate() {
    // What waits would change memory that nobody can see any more, unless it is the caller's.
    const bool stays = memory_pinned || (block_store != nullptr && block_store->external_buffer);
    if (waiting_gates != nullptr && !stays) waiting_gates->drop();
    finish();
    if (memory_pinned) return;
    if (blocks != nullptr) {
        if (team != nullptr && !team->has_workers()) {
            // A forked child has nobody to join: blocks and team stay behind with what the workers
            // slept on.
            [[maybe_unused]] const BlockTeam* left_behind = team.release();
        } else {
            for (unsigned long i = 0; i < num_blocks; ++i) delete blocks[i];
        }
        delete[] blocks;
        blocks = nullptr;
    }
    waiting_gates.reset();
    team.reset();
    delete block_store;
    block_store = nullptr;
}

// To wait is to let the blocks change, whatever the fields here do.
// NOLINTNEXTLINE(readability-make-member-function-const)
void QPU::finish() {
    if (waiting_gates != nullptr) waiting_gates->settle();
    // A reset that failed has left its sizes and its choice of threads, but no blocks.
    if (!use_threads || blocks == nullptr) return;
    for (unsigned long i = 0; i < num_blocks; ++i) {
        if (blocks[i] != nullptr) blocks[i]->finish();
    }
}

// NOLINTNEXTLINE(readability-make-member-function-const)
void QPU::removable_finish() {
    if (!finish_each_op || !use_threads || blocks == nullptr) return;
    for (unsigned long i = 0; i < num_blocks; ++i) {
        if (blocks[i] != nullptr) blocks[i]->finish_tasks();
    }
}

void QPU::end_records() {
    in_records = false;
    if (block_store != nullptr && block_store->external_buffer) finish();
}

bool QPU::self_check(int line) {
    bool sound = true;
    for (unsigned long i = 0; blocks != nullptr && sound && i < num_blocks; ++i) {
        sound = blocks[i]->self_check(line);
    }
    finish();
    return sound;
}

void QPU::verify_allocated() const {
    if (blocks != nullptr) return;
    throw std::runtime_error(
        "Error: Simulated state vector data is requested, but not present. To fix this:\n"
        "        (1) Make sure qc.reset() has been called.\n"
        "        (2) Make sure a '>>state-vector-sim>>' or other filter has been added to the "
        "pipeline.\n"
        "              for example: qc = QPU();\n"
        "                    ...or: QPU(filters=['>>state-vector-sim>>', '>>buffer>>'], "
        "add_default_filters=False)");
}

}  // namespace Nimbrel

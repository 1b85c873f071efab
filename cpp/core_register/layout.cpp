#include "core_register/layout.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>

namespace Nimbrel {
namespace {

// log2 of the terms of the smallest block: posting a task costs more than the work on fewer terms.
constexpr unsigned long smallest_automatic_block = 12;

// Number of blocks to aim at if the number of hardware threads is not known.
constexpr unsigned int aim_of_an_unknown_machine = 8;

void print_thread_count(unsigned long threads) {
    std::printf("    ...setting num_threads to %d\n", static_cast<int>(threads));
}

/// The thread count that a layout with a given block size prints. It is not used otherwise: every
/// block has one thread.
unsigned long thread_count_by_hand(unsigned long block_qubits) {
    if (block_qubits <= 2) return 1;
    unsigned long count = 1;
    // 2^count is compared with the block's qubits, so the loop ends at 8 for any block in memory.
    while (count < 32 && (1UL << count) < block_qubits) count *= 2;
    return count;
}

RegisterLayout layout_by_hand(const LayoutRequest& request, bool threads) {
    const unsigned long block_qubits = std::min(request.num_block_qubits, request.num_qubits);
    if (request.verbose) {
        std::puts("Setting thread count...");
        std::printf("    User requested num_qubits: %d\n", static_cast<int>(request.num_qubits));
        std::printf("    User requested num_block_qubits: %d\n", static_cast<int>(block_qubits));
        if (request.max_num_threads != 0) {
            std::puts("     (ignoring max_num_threads in favor of num_block_qubits)");
        }
        print_thread_count(thread_count_by_hand(block_qubits));
    }
    return {block_qubits, threads};
}

/// Largest number of blocks to make, a power of two.
unsigned long most_blocks(unsigned int hardware_threads, unsigned long max_num_threads) {
    // Two blocks for each thread. The product has 32 bits; one that overflows to 0 makes one block.
    const unsigned int aim =
        hardware_threads == 0 ? aim_of_an_unknown_machine : 2U * hardware_threads;
    if (aim <= 1) return 1;
    unsigned long most = std::bit_ceil(static_cast<unsigned long>(aim));
    while (max_num_threads != 0 && most > max_num_threads) most /= 2;
    return most;
}

RegisterLayout automatic_layout(const LayoutRequest& request, bool threads,
                                unsigned int hardware_threads) {
    if (request.verbose) {
        std::puts("Automatically setting thread count...");
        std::printf("    Detected CPU hard-threads: %d\n", static_cast<int>(hardware_threads));
        if (request.max_num_threads != 0) {
            std::printf("    User requested max_threads: %d\n",
                        static_cast<int>(request.max_num_threads));
        }
    }
    const unsigned long most = most_blocks(hardware_threads, request.max_num_threads);
    unsigned long block_qubits = request.num_qubits;
    unsigned long blocks = 1;
    while (blocks < most && block_qubits > smallest_automatic_block) {
        blocks *= 2;
        --block_qubits;
    }
    if (request.verbose) print_thread_count(blocks);
    return {block_qubits, threads && blocks > 1};
}

}  // namespace

bool depends_on_hardware(const LayoutRequest& request) {
    if (request.num_block_qubits != 0) return false;
    return request.verbose || request.num_qubits > smallest_automatic_block;
}

RegisterLayout decide_layout(const LayoutRequest& request, unsigned int hardware_threads) {
    // A limit of one thread is the caller's own, also if the block size is given.
    const bool threads = request.async && request.max_num_threads != 1;
    if (request.num_block_qubits != 0) return layout_by_hand(request, threads);
    return automatic_layout(request, threads, hardware_threads);
}

double state_gigabytes(unsigned long qubits) {
    constexpr double gigabytes_per_byte = 9.313225746154785e-10;
    return std::pow(2.0, static_cast<double>(qubits)) * 16.0 * gigabytes_per_byte;
}

bool is_over_limit(unsigned long qubits, unsigned long max_ram_size_gb) {
    if (max_ram_size_gb == 0) return false;
    return state_gigabytes(qubits) > static_cast<double>(max_ram_size_gb);
}

}  // namespace Nimbrel

/// The decisions of a reset: how the register is cut into blocks, whether they get threads, and
/// whether its memory is allowed.
#pragma once

namespace Nimbrel {

/// What a reset asks for.
struct LayoutRequest {
    unsigned long num_qubits = 0;
    unsigned long num_block_qubits = 0;  ///< 0 leaves the choice to the engine
    unsigned long max_num_threads = 0;   ///< 0 is no limit
    bool async = true;
    bool verbose = false;  ///< the decision is printed as it is made
};

struct RegisterLayout {
    unsigned long num_block_qubits;  ///< from 0 up to the register's qubits
    bool use_threads;                ///< one worker a block

    bool operator==(const RegisterLayout&) const = default;
};

/// Whether the layout, or what is printed about it, depends on the number of hardware threads.
/// Reading that number can cost more than the rest of the reset of a small register.
bool depends_on_hardware(const LayoutRequest& request);

/// The layout for a machine with `hardware_threads`, 0 if their number is not known. An automatic
/// layout has up to two blocks for each hardware thread and no block below 2^12 terms. A register
/// of 12 qubits or fewer is one block without a thread.
///
/// Requires: `hardware_threads` is valid if `depends_on_hardware(request)`.
RegisterLayout decide_layout(const LayoutRequest& request, unsigned int hardware_threads);

/// Gigabytes of 2^`qubits` amplitudes; infinity if that overflows a double.
double state_gigabytes(unsigned long qubits);

/// Whether the state vector is larger than the limit allows; 0 is no limit.
bool is_over_limit(unsigned long qubits, unsigned long max_ram_size_gb);

}  // namespace Nimbrel

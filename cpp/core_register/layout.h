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

/// Whether the machine has a say in the layout or in what is printed of it. To ask it for its
/// threads can cost more than all else in the reset of a small register.
bool depends_on_hardware(const LayoutRequest& request);

/// The layout for a machine with `hardware_threads`, 0 when their number is not known. Left to
/// itself it makes up to twice as many blocks as there are hardware threads, none of less than 2^12
/// terms; a register of 12 qubits or fewer is one block without a thread.
///
/// Requires: the number, if the request depends on it.
RegisterLayout decide_layout(const LayoutRequest& request, unsigned int hardware_threads);

/// Gigabytes of 2^`qubits` amplitudes; infinite where a double ends.
double state_gigabytes(unsigned long qubits);

/// Whether the state vector is larger than the limit allows; 0 is no limit.
bool is_over_limit(unsigned long qubits, unsigned long max_ram_size_gb);

}  // namespace Nimbrel

#include "core_register/core_register.h"

#include "dense/blocks/core_block.h"
#include "dense/blocks/gate_queue.h"
#include "dense/blocks/team.h"

namespace Nimbrel {
namespace {

// Flag numbers are reduced modulo this number, which limits the table to 12.5 MB.
constexpr unsigned long read_flag_table_size = 100'000'000;

}  // namespace

QPU::QPU(unsigned long qubits, OpFilter* owning_filter)
    : QPU_Base(qubits, owning_filter), waits_from_qubits(GateQueue::fewest_qubits) {
    read_flag_capacity = read_flag_table_size;
    sim_params["num_block_qubits"] = 0;
    sim_params["max_ram_size_gb"] = 0;
    sim_params["max_num_threads"] = 0;
    sim_params["randomized"] = 0;
    sim_params["use_opencl"] = 0;
    sim_params["async"] = 1;
    sim_params["verbose"] = 0;
}

}  // namespace Nimbrel

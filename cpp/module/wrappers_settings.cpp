#include "module/methods.h"
#include "module/wrapper.h"

#include "support/random.h"

namespace Nimbrel::Binding {

PyObject* random_seed(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        // The handle is not used: the whole process has one generator.
        unsigned int handle = 0;
        unsigned int seed = 0;
        parse_arguments(args, "II", &handle, &seed);
        set_random_seed(seed);
        return none();
    });
}

PyObject* setup_sim_params(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        unsigned int num_block_qubits = 0;
        unsigned int max_ram_size_gb = 0;
        unsigned int max_num_threads = 0;
        unsigned int randomized = 0;
        unsigned int use_opencl = 0;
        unsigned int async = 0;
        unsigned int verbose = 0;
        parse_arguments(args, "IIIIIIII", &handle, &num_block_qubits, &max_ram_size_gb,
                        &max_num_threads, &randomized, &use_opencl, &async, &verbose);
        auto& params = require_filter(handle).qpu_base().sim_params;
        params["num_block_qubits"] = num_block_qubits;
        params["max_ram_size_gb"] = max_ram_size_gb;
        params["max_num_threads"] = max_num_threads;
        params["randomized"] = randomized != 0 ? 1 : 0;
        params["use_opencl"] = use_opencl != 0 ? 1 : 0;
        params["async"] = async != 0 ? 1 : 0;
        params["verbose"] = verbose != 0 ? 1 : 0;
        return none();
    });
}

PyObject* enable_qubit_debugging(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        unsigned int on = 0;
        parse_arguments(args, "II", &handle, &on);
        require_filter(handle).qpu_base().debug_qubits = on != 0;
        return none();
    });
}

}  // namespace Nimbrel::Binding

/// The exported functions, in the order of the method table.
///
/// Called by the interpreter on a Python thread that holds the interpreter lock.
#pragma once

#include "module/numpy_api.h"

namespace Nimbrel::Binding {

using Wrapper = PyObject*(PyObject* module, PyObject* args);

Wrapper pull_state;
Wrapper pull_state_specific;
Wrapper push_state;
Wrapper check_state;
Wrapper override_state_buffer;
Wrapper put_instructions;
Wrapper new_native_filter;
Wrapper delete_native_filter;
Wrapper set_random;
Wrapper normalize;
Wrapper pps;
Wrapper postselect;
Wrapper peek_num_nonzero_terms;
Wrapper peek_n_biggest_terms;
Wrapper peek_value;
Wrapper random_seed;
Wrapper peek_read_probability;
Wrapper fetch_read_result;
Wrapper setup_sim_params;
Wrapper enable_qubit_debugging;
Wrapper finish;
Wrapper connect;
Wrapper disconnect;
Wrapper get_status;
Wrapper get_next_event;

}  // namespace Nimbrel::Binding

#define NIMBREL_BINDS_NUMPY
#include "module/numpy_api.h"

#include <array>

#include "module/methods.h"
#include "module/owned_reference.h"
#include "module/processor_check.h"

namespace {

namespace Binding = Nimbrel::Binding;

constexpr PyMethodDef method(const char* name, PyCFunction wrapper) {
    return {name, wrapper, METH_VARARGS, ""};
}

std::array<PyMethodDef, 26> method_table{
    method("pull_state", Binding::pull_state),
    method("pull_state_specific", Binding::pull_state_specific),
    method("push_state", Binding::push_state),
    method("check_state", Binding::check_state),
    method("override_state_buffer", Binding::override_state_buffer),
    method("put_instructions", Binding::put_instructions),
    method("new_native_filter", Binding::new_native_filter),
    method("delete_native_filter", Binding::delete_native_filter),
    method("set_random", Binding::set_random),
    method("normalize", Binding::normalize),
    method("pps", Binding::pps),
    method("postselect", Binding::postselect),
    method("peek_num_nonzero_terms", Binding::peek_num_nonzero_terms),
    method("peek_n_biggest_terms", Binding::peek_n_biggest_terms),
    method("peek_value", Binding::peek_value),
    method("random_seed", Binding::random_seed),
    method("peek_read_probability", Binding::peek_read_probability),
    method("fetch_read_result", Binding::fetch_read_result),
    method("setup_sim_params", Binding::setup_sim_params),
    method("enable_qubit_debugging", Binding::enable_qubit_debugging),
    method("finish", Binding::finish),
    method("connect", Binding::connect),
    method("disconnect", Binding::disconnect),
    method("get_status", Binding::get_status),
    method("get_next_event", Binding::get_next_event),
    PyMethodDef{nullptr, nullptr, 0, nullptr},
};

struct ModuleState {
    PyObject* error;  ///< owned; "nb_sim.Error", which is never raised
};
static_assert(sizeof(ModuleState) == 8);

// Python imports the module by another name than this one. Front ends know both.
PyModuleDef module_definition{PyModuleDef_HEAD_INIT,
                              "libnbsim",
                              nullptr,
                              sizeof(ModuleState),
                              method_table.data(),
                              nullptr,
                              nullptr,
                              nullptr,
                              nullptr};

/// Whether this is the main interpreter. If not, sets ImportError.
///
/// Filters, their handles and the random generator belong to the process, and the lock of one
/// interpreter guards them. Each interpreter may have a lock of its own, and NumPy serves the main
/// one only.
bool require_main_interpreter() {
    if (PyInterpreterState_Get() == PyInterpreterState_Main()) return true;
    PyErr_SetString(PyExc_ImportError,
                    "_lib_nb_sim does not support sub-interpreters: import it in the main "
                    "interpreter, or use processes");
    return false;
}

}  // namespace

PyMODINIT_FUNC PyInit__lib_nb_sim() {
    if (!Binding::require_processor() || !require_main_interpreter()) return nullptr;

    Binding::OwnedReference module(PyModule_Create2(&module_definition, PYTHON_API_VERSION));
    if (!module) return nullptr;
    Binding::OwnedReference error(PyErr_NewException("nb_sim.Error", nullptr, nullptr));
    if (!error) return nullptr;
    // If NumPy does not load, prints the cause, sets ImportError and returns null.
    import_array1(nullptr);

    static_cast<ModuleState*>(PyModule_GetState(module.get()))->error = error.release();
    return module.release();
}

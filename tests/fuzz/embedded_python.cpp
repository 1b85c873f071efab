#include "embedded_python.h"

#include <cstdlib>

PyMODINIT_FUNC PyInit__lib_nb_sim();

namespace Nimbrel::Fuzzing {
namespace {

[[noreturn]] void stop_at(const char* step) {
    if (PyErr_Occurred() != nullptr) PyErr_Print();
    std::fprintf(stderr, "the embedded interpreter failed: %s\n", step);
    std::exit(1);
}

void require(PyStatus status, const char* step) {
    if (PyStatus_Exception(status) != 0) stop_at(step);
}

void start_interpreter() {
    PyPreConfig before;
    PyPreConfig_InitPythonConfig(&before);
    // The interpreter's own allocator would hide overruns of small objects.
    before.allocator = PYMEM_ALLOCATOR_MALLOC;
    require(Py_PreInitialize(&before), "allocator");
    PyImport_AppendInittab("_lib_nb_sim", PyInit__lib_nb_sim);
    PyConfig config;
    PyConfig_InitPythonConfig(&config);
    config.install_signal_handlers = 0;
    // The environment in which NumPy is installed is found by its interpreter's path.
    require(PyConfig_SetBytesString(&config, &config.program_name, NIMBREL_PYTHON), "path");
    require(Py_InitializeFromConfig(&config), "start");
    PyConfig_Clear(&config);
}

}  // namespace

PyObject* engine_module() {
    static PyObject* const module = [] {
        // NumPy would start threads for its linear algebra, which spin and which no input uses.
        setenv("OPENBLAS_NUM_THREADS", "1", 1);
        start_interpreter();
        PyObject* imported = PyImport_ImportModule("_lib_nb_sim");
        if (imported == nullptr) stop_at("import of the module");
        return imported;
    }();
    return module;
}

}  // namespace Nimbrel::Fuzzing

#include "module/arrays.h"
#include "module/buffer_references.h"
#include "module/methods.h"
#include "module/wrapper.h"

namespace Nimbrel::Binding {

PyObject* put_instructions(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        PyArrayObject* array = nullptr;
        unsigned int num_ops = 0;
        parse_arguments(args, "IO!I", &handle, &PyArray_Type, &array, &num_ops);
        OpFilter& filter = require_filter(handle);
        if (num_ops != array_length(array)) {
            throw std::runtime_error(
                "Error: put_instructions array length differs from num_ops argument.");
        }
        const Records records(array);
        filter.put_instructions(records.data(), num_ops);
        return none();
    });
}

PyObject* new_native_filter(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        const char* type_name = nullptr;
        parse_arguments(args, "s", &type_name);
        const unsigned long handle = OpFilter::AllocateNew(nullptr, type_name, 0, 0)->handle;
        PyObject* const number = Py_BuildValue("I", static_cast<unsigned int>(handle));
        // Without its handle nobody can delete the filter.
        if (number == nullptr) OpFilter::delete_filter(handle);
        return number;
    });
}

PyObject* delete_native_filter(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        parse_arguments(args, "I", &handle);
        require_filter(handle);
        OpFilter::delete_filter(handle);
        release_buffer(handle);
        return none();
    });
}

PyObject* fetch_read_result(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        int first = 0;
        unsigned int count = 0;
        parse_arguments(args, "IiI", &handle, &first, &count);
        const OpFilter& filter = require_filter(handle);
        const unsigned long flags = filter.qpu_base().fetch_read_result(first, count);
        return Py_BuildValue("I", static_cast<unsigned int>(flags));
    });
}

}  // namespace Nimbrel::Binding

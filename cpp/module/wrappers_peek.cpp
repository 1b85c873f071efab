#include "module/arrays.h"
#include "module/methods.h"
#include "module/wrapper.h"

namespace Nimbrel::Binding {

PyObject* pps(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        unsigned int x_mask = 0;
        unsigned int z_mask = 0;
        parse_arguments(args, "III", &handle, &x_mask, &z_mask);
        return Py_BuildValue("d", require_filter(handle).pps(x_mask, z_mask));
    });
}

PyObject* postselect(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        unsigned int value = 0;
        unsigned int mask = 0;
        parse_arguments(args, "III", &handle, &value, &mask);
        require_filter(handle).postselect(value, mask);
        return none();
    });
}

PyObject* peek_num_nonzero_terms(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        parse_arguments(args, "I", &handle);
        const unsigned long terms = require_filter(handle).peek_num_nonzero_terms();
        return Py_BuildValue("I", static_cast<unsigned int>(terms));
    });
}

PyObject* peek_n_biggest_terms(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        unsigned int count = 0;
        PyArrayObject* indices = nullptr;
        PyArrayObject* amplitudes = nullptr;
        parse_arguments(args, "IIO!O!", &handle, &count, &PyArray_Type, &indices, &PyArray_Type,
                        &amplitudes);
        OpFilter& filter = require_filter(handle);
        const Indices places = require_indices(
            indices, "Error: peek_n_biggest_terms() dest_indoces must be an array of type int");
        const Amplitudes terms = require_amplitudes(
            amplitudes,
            "Error: peek_n_biggest_terms() dest_amplitudes must be an array of type complex128");
        require_needs("peek_n_biggest_terms", filter.array_rules.peek_n_biggest_terms_needs(count),
                      places, terms);
        filter.peek_n_biggest_terms(count, places.data, terms.data);
        return none();
    });
}

PyObject* peek_value(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        unsigned int index = 0;
        PyArrayObject* dest = nullptr;
        parse_arguments(args, "IIO!", &handle, &index, &PyArray_Type, &dest);
        OpFilter& filter = require_filter(handle);
        const Amplitudes amplitude = require_amplitudes(
            dest, "Error: peek_value() dest_amplitude must be an array of type complex128");
        require_needs("peek_value", filter.array_rules.peek_value_needs(), amplitude);
        filter.peek_value(index, amplitude.data);
        return none();
    });
}

PyObject* peek_read_probability(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        unsigned int value = 0;
        unsigned int mask = 0;
        double limit = 0.0;
        parse_arguments(args, "IIId", &handle, &value, &mask, &limit);
        return Py_BuildValue("d", require_filter(handle).peek_read_probability(value, mask, limit));
    });
}

}  // namespace Nimbrel::Binding

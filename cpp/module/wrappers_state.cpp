#include "module/arrays.h"
#include "module/buffer_references.h"
#include "module/methods.h"
#include "module/wrapper.h"

#include <bit>
#include <string>

namespace Nimbrel::Binding {
namespace {

constexpr const char* bad_pull_array =
    "Error: pull_state() dest buffer must be an array of type complex128";

// check_state() has the same text.
constexpr const char* bad_push_array =
    "Error: push_state() dest buffer must be an array of type complex128";

/// Number of qubits of a buffer. Requires: `length` is a power of two or 0. A register has at least
/// one qubit, so lengths below 2 count as 2.
unsigned long qubits_of_buffer(unsigned long length) {
    return length <= 2 ? 1 : static_cast<unsigned long>(std::countr_zero(length));
}

}  // namespace

PyObject* pull_state(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        static std::string info;
        unsigned int handle = 0;
        PyArrayObject* dest = nullptr;
        parse_arguments(args, "IO!", &handle, &PyArray_Type, &dest);
        OpFilter& filter = require_filter(handle);
        const Amplitudes amplitudes = require_amplitudes(dest, bad_pull_array);
        info.clear();
        require_needs("pull_state", filter.array_rules.pull_state_needs(amplitudes.length),
                      amplitudes);
        filter.pull_state(amplitudes.data, info, amplitudes.length);
        return Py_BuildValue("s", info.c_str());
    });
}

PyObject* pull_state_specific(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        static std::string info;
        unsigned int handle = 0;
        PyArrayObject* dest = nullptr;
        unsigned int selector = 0;
        parse_arguments(args, "IO!I", &handle, &PyArray_Type, &dest, &selector);
        OpFilter& filter = require_filter(handle);
        const Amplitudes amplitudes = require_amplitudes(dest, bad_pull_array);
        info.clear();
        require_needs("pull_state_specific",
                      filter.array_rules.pull_state_specific_needs(selector, amplitudes.length),
                      amplitudes);
        filter.pull_state_specific(info, amplitudes.data, amplitudes.length, selector);
        return Py_BuildValue("s", info.c_str());
    });
}

PyObject* push_state(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        PyArrayObject* source = nullptr;
        unsigned int selector = 0;
        parse_arguments(args, "IO!I", &handle, &PyArray_Type, &source, &selector);
        OpFilter& filter = require_filter(handle);
        const Amplitudes amplitudes = require_amplitudes(source, bad_push_array);
        require_needs("push_state", filter.array_rules.push_state_needs(selector), amplitudes);
        filter.push_state(amplitudes.data, selector, amplitudes.length);
        return none();
    });
}

PyObject* check_state(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        PyArrayObject* expected = nullptr;
        double tolerance = 0.0;
        int flag = 0;
        parse_arguments(args, "IO!di", &handle, &PyArray_Type, &expected, &tolerance, &flag);
        OpFilter& filter = require_filter(handle);
        const Amplitudes amplitudes = require_amplitudes(expected, bad_push_array);
        require_needs(
            "check_state",
            filter.array_rules.check_state_needs(amplitudes.data, amplitudes.length, tolerance),
            amplitudes);
        return Py_BuildValue("i", filter.check_state(amplitudes.data, tolerance, flag != 0));
    });
}

PyObject* override_state_buffer(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        PyArrayObject* buffer = nullptr;
        parse_arguments(args, "IO!", &handle, &PyArray_Type, &buffer);
        OpFilter& filter = require_filter(handle);
        const unsigned long length = array_length(buffer);
        if ((length & (length - 1)) != 0) {
            throw std::runtime_error(
                "Error: override_state_buffer() buffer must be an power of 2 in length");
        }
        const Amplitudes amplitudes = require_amplitudes(
            buffer, "Error: override_state_buffer() buffer must be an array of type complex128");
        const unsigned long num_qubits = qubits_of_buffer(length);
        require_needs("override_state_buffer",
                      filter.array_rules.override_state_buffer_needs(num_qubits), amplitudes);
        prepare_to_hold_buffer(filter.handle);
        filter.override_state_buffer(amplitudes.data, num_qubits);
        hold_buffer(filter.handle, buffer);
        return none();
    });
}

PyObject* set_random(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        parse_arguments(args, "I", &handle);
        require_filter(handle).set_random();
        return none();
    });
}

PyObject* normalize(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        parse_arguments(args, "I", &handle);
        return Py_BuildValue("d", require_filter(handle).normalize());
    });
}

}  // namespace Nimbrel::Binding

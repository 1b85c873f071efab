#include "module/methods.h"
#include "module/owned_reference.h"
#include "module/wrapper.h"

#include <algorithm>
#include <string>
#include <vector>

namespace Nimbrel::Binding {
namespace {

/// A new one-dimensional uint64 array with the ids. On failure sets a Python error and is empty.
OwnedReference id_array(const std::vector<unsigned long>& ids) {
    auto length = static_cast<npy_intp>(ids.size());
    OwnedReference array(
        PyArray_New(&PyArray_Type, 1, &length, NPY_UINT64, nullptr, nullptr, 0, 0, nullptr));
    if (!array) return array;
    auto* data =
        static_cast<unsigned long*>(PyArray_DATA(reinterpret_cast<PyArrayObject*>(array.get())));
    std::copy(ids.begin(), ids.end(), data);
    return array;
}

/// The tuple of name, message, code and open ids. On failure sets a Python error and is empty.
OwnedReference event_tuple(const OpEvent& event) {
    const OwnedReference ids = id_array(event.ids);
    if (!ids) return {};
    return OwnedReference(
        Py_BuildValue("(ssIO)", event.name.c_str(), event.message.c_str(), event.code, ids.get()));
}

}  // namespace

PyObject* finish(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        parse_arguments(args, "I", &handle);
        require_filter(handle).finish();
        return none();
    });
}

PyObject* connect(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        const char* host = nullptr;
        int port = 0;
        double timeout = 0.0;
        parse_arguments(args, "Isid", &handle, &host, &port, &timeout);
        std::string result;
        require_filter(handle).connect(host, port, timeout, result);
        return Py_BuildValue("s", result.c_str());
    });
}

PyObject* disconnect(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        parse_arguments(args, "I", &handle);
        std::string result;
        require_filter(handle).disconnect(result);
        return Py_BuildValue("s", result.c_str());
    });
}

PyObject* get_status(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        parse_arguments(args, "I", &handle);
        std::string result;
        require_filter(handle).get_status(result);
        return Py_BuildValue("s", result.c_str());
    });
}

PyObject* get_next_event(PyObject* /*module*/, PyObject* args) {
    return run_wrapper([args] {
        unsigned int handle = 0;
        parse_arguments(args, "I", &handle);
        std::vector<OpEvent>& events = require_filter(handle).events;
        if (events.empty()) return none();
        OwnedReference event = event_tuple(events.front());
        if (event) events.erase(events.begin());
        return event.release();
    });
}

}  // namespace Nimbrel::Binding

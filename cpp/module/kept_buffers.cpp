#include "module/kept_buffers.h"

#include <map>
#include <utility>

namespace Nimbrel::Binding {
namespace {

/// One owned reference for each filter that ever took a buffer. A reset back to memory of its own
/// does not end it, since one of the same shape stays on the buffer. Whatever is left at process
/// exit is left: the interpreter is gone by then.
std::map<unsigned long, PyArrayObject*> kept_buffers;

}  // namespace

// A reference goes last in both: the end of an array may run Python code that calls the module.
void keep_buffer(unsigned long handle, PyArrayObject* buffer) {
    PyArrayObject*& kept = kept_buffers[handle];
    Py_INCREF(buffer);
    PyArrayObject* former = std::exchange(kept, buffer);
    Py_XDECREF(former);
}

void drop_buffer(unsigned long handle) {
    const auto entry = kept_buffers.find(handle);
    if (entry == kept_buffers.end()) return;
    PyArrayObject* former = entry->second;
    kept_buffers.erase(entry);
    Py_DECREF(former);
}

}  // namespace Nimbrel::Binding

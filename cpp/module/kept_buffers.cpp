#include "module/kept_buffers.h"

#include <map>
#include <utility>

#include "module/owned_reference.h"

namespace Nimbrel::Binding {
namespace {

/// One reference for each filter that ever took a buffer. A reset back to memory of its own does
/// not end it, since one of the same shape stays on the buffer.
std::map<unsigned long, OwnedReference>& kept_buffers() {
    // Never destroyed: at process exit the interpreter is gone, and with it who could take a
    // reference back.
    static auto* const buffers = new std::map<unsigned long, OwnedReference>;
    return *buffers;
}

}  // namespace

// A former reference goes last in both: the end of an array may run Python code that calls the
// module.
void keep_buffer(unsigned long handle, PyArrayObject* buffer) {
    auto kept = OwnedReference::to(reinterpret_cast<PyObject*>(buffer));
    std::swap(kept_buffers()[handle], kept);
}

void drop_buffer(unsigned long handle) { const auto former = kept_buffers().extract(handle); }

}  // namespace Nimbrel::Binding

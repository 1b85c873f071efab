#include "module/buffer_references.h"

#include <map>
#include <utility>

#include "module/owned_reference.h"

namespace Nimbrel::Binding {
namespace {

/// One reference for each filter that ever used a caller's array. A later reset does not remove it,
/// because a reset to the same size keeps using the array.
std::map<unsigned long, OwnedReference>& held_buffers() {
    // Never destroyed: at process exit there is no interpreter to release references to.
    static auto* const buffers = new std::map<unsigned long, OwnedReference>;
    return *buffers;
}

}  // namespace

void prepare_to_hold_buffer(unsigned long handle) { held_buffers().try_emplace(handle); }

// Both functions release the former reference last, because the destruction of an array may run
// Python code that calls the module.
void hold_buffer(unsigned long handle, PyArrayObject* buffer) {
    auto former = OwnedReference::to(reinterpret_cast<PyObject*>(buffer));
    std::swap(held_buffers().at(handle), former);
}

void release_buffer(unsigned long handle) { const auto former = held_buffers().extract(handle); }

}  // namespace Nimbrel::Binding

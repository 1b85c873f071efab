/// `OwnedReference`, an owning reference to a Python object. Requires the interpreter lock.
#pragma once

#include "module/numpy_api.h"

#include <utility>

namespace Nimbrel::Binding {

/// Owns one reference, or none. The destruction of the Python object may run Python code that calls
/// the module, so a container must be in a valid state before it destroys an `OwnedReference`.
class OwnedReference {
  public:
    OwnedReference() = default;
    /// Takes ownership of a new reference, or of null.
    explicit OwnedReference(PyObject* new_reference) : object_(new_reference) {}
    /// A further reference to a borrowed object.
    static OwnedReference to(PyObject* object) {
        Py_INCREF(object);
        return OwnedReference(object);
    }
    ~OwnedReference() { Py_XDECREF(object_); }

    OwnedReference(OwnedReference&& other) noexcept : object_(other.release()) {}
    OwnedReference& operator=(OwnedReference&& other) noexcept {
        const OwnedReference former(std::exchange(object_, other.release()));
        return *this;
    }
    OwnedReference(const OwnedReference&) = delete;
    OwnedReference& operator=(const OwnedReference&) = delete;

    explicit operator bool() const { return object_ != nullptr; }
    PyObject* get() const { return object_; }

    /// Passes ownership to the caller.
    [[nodiscard]] PyObject* release() noexcept { return std::exchange(object_, nullptr); }

  private:
    PyObject* object_ = nullptr;
};

}  // namespace Nimbrel::Binding

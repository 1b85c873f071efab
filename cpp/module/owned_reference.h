/// A reference to a Python object that gives itself back, for use under the interpreter lock.
#pragma once

#include "module/numpy_api.h"

#include <utility>

namespace Nimbrel::Binding {

/// Owns one reference, or none. The end of the object may run Python code that calls the module, so
/// a container that holds one must be in order before it lets it go.
class OwnedReference {
  public:
    OwnedReference() = default;
    /// Takes over a new reference, as most calls of Python's interface return, or null.
    explicit OwnedReference(PyObject* new_reference) : object_(new_reference) {}
    /// One more reference to an object that belongs to somebody else.
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

    /// Hands the reference over to the caller.
    [[nodiscard]] PyObject* release() noexcept { return std::exchange(object_, nullptr); }

  private:
    PyObject* object_ = nullptr;
};

}  // namespace Nimbrel::Binding

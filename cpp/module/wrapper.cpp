#include "module/wrapper.h"

namespace Nimbrel::Binding {

OpFilter& require_filter(unsigned int handle) {
    OpFilter* filter = OpFilter::get_filter(handle);
    if (filter == nullptr) throw std::runtime_error("Error: native filter not found.");
    return *filter;
}

PyObject* none() { Py_RETURN_NONE; }

}  // namespace Nimbrel::Binding

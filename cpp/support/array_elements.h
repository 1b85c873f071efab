/// Elements of a caller's arrays, which may begin at any byte: they are copied and not referred to.
/// For any thread.
#pragma once

#include <cstring>

namespace Nimbrel {

template <typename Element>
Element element(const Element* array, unsigned long i) {
    Element value;
    std::memcpy(&value, array + i, sizeof value);
    return value;
}

template <typename Element>
void set_element(Element* array, unsigned long i, const Element& value) {
    std::memcpy(array + i, &value, sizeof value);
}

/// Sets all bits of the first `count` elements to 0.
template <typename Element>
void clear_elements(Element* array, unsigned long count) {
    if (count != 0) std::memset(static_cast<void*>(array), 0, count * sizeof *array);
}

}  // namespace Nimbrel

#include "filter/state/op_event.h"

#include <algorithm>

namespace Nimbrel {

void OpEventStack::push(unsigned long id) {
    ids.push_back(id);
    try {
        values.push_back(0);
    } catch (...) {
        ids.pop_back();
        throw;
    }
}

void OpEventStack::pop(unsigned long id) {
    const auto latest = std::find(ids.rbegin(), ids.rend(), id);
    if (latest == ids.rend()) return;
    const auto index = ids.rend() - latest - 1;
    ids.erase(ids.begin() + index);
    values.erase(values.begin() + index);
}

}  // namespace Nimbrel

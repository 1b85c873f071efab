#include "filter/state/op_event.h"

#include <algorithm>
#include <utility>

#include "filter/op_filter.h"

namespace Nimbrel {

void OpEventStack::push(unsigned long id) {
    ids.push_back(id);
    values.push_back(0);
}

void OpEventStack::pop(unsigned long id) {
    const auto latest = std::find(ids.rbegin(), ids.rend(), id);
    if (latest == ids.rend()) return;
    const auto index = ids.rend() - latest - 1;
    ids.erase(ids.begin() + index);
    values.erase(values.begin() + index);
}

// Here and not with the rest of the filter base: the register reports failed assertions through it
// and stands below the filters.
void OpFilter::queue_event(std::string name, std::string message, unsigned int code,
                           unsigned long aux) {
    events.push_back({.name = std::move(name),
                      .message = std::move(message),
                      .code = code,
                      .aux = aux,
                      .ids = event_stack.ids,
                      .values = event_stack.values});
}

}  // namespace Nimbrel

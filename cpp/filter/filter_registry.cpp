#include "filter/op_filter.h"

namespace Nimbrel {

std::map<unsigned long, OpFilter*> OpFilter::filter_registry;
unsigned long OpFilter::next_native_handle = 1;

OpFilter* OpFilter::get_filter(unsigned long handle) {
    const auto entry = filter_registry.find(handle);
    return entry == filter_registry.end() ? nullptr : entry->second;
}

void OpFilter::delete_filter(unsigned long handle) {
    const auto entry = filter_registry.find(handle);
    if (entry == filter_registry.end()) return;
    delete entry->second;
    filter_registry.erase(entry);
}

}  // namespace Nimbrel

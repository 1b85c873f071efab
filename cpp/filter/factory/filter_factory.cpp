#include <array>
#include <stdexcept>
#include <string>
#include <string_view>

#include "bit/bit_filter.h"
#include "clifford/clifford_filter.h"
#include "dense/dense_filter.h"
#include "filter/op_filter.h"
#include "remote/connect_filter.h"
#include "sparse/sparse_filter.h"

namespace Nimbrel {
namespace {

struct FilterType {
    std::string_view name;
    OpFilter* (*make)();
};

template <typename Filter>
OpFilter* make_filter() {
    return new Filter();
}

/// A new filter class adds a row here.
constexpr std::array filter_types{
    FilterType{"StreamQPU", make_filter<OpFilter_QPUSim>},
    FilterType{"StreamSparseQPU", make_filter<OpFilter_SparseSVSim>},
    FilterType{"StreamBitQPU", make_filter<OpFilter_BitQPUSim>},
    FilterType{"StreamCliffordQPU", make_filter<OpFilter_CliffordQPUSim>},
    FilterType{"StreamConnect", make_filter<OpFilter_Connect>},
};

}  // namespace

OpFilter* OpFilter::AllocateNew(QPU_Base* /*qpu*/, const char* type_name, unsigned long /*unused*/,
                                unsigned long /*unused*/) {
    for (const FilterType& type : filter_types) {
        if (type.name == type_name) return type.make();
    }
    throw std::runtime_error(std::string("Error: Unknown Filter type: ") + type_name);
}

}  // namespace Nimbrel

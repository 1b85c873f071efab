#include "remote/export_filter.h"

#include <array>
#include <bit>

#include "remote/connection_status.h"

namespace Nimbrel {
namespace {

using RecordWords = std::array<unsigned long long, sizeof(QPUOp) / sizeof(unsigned long long)>;

}  // namespace

// Not in the header, because the constructor of the base class is not exported.
OpFilter_cuQuantum_Export::OpFilter_cuQuantum_Export() = default;

OpFilter_cuQuantum_Export::~OpFilter_cuQuantum_Export() {
    if (out == nullptr) return;
    std::fputs("};\n", out);
    std::fclose(out);
    out = nullptr;
}

void OpFilter_cuQuantum_Export::put_instructions(const QPUOp* ops, unsigned long num_ops) {
    if (out == nullptr) return;
    for (unsigned long i = 0; i < num_ops; ++i) {
        for (const unsigned long long word : std::bit_cast<RecordWords>(ops[i])) {
            std::fprintf(out, "0x%016llxLL, ", word);
        }
        std::fputc('\n', out);
    }
    std::fflush(out);
}

void OpFilter_cuQuantum_Export::get_status(std::string& result) {
    result = connection_status(out != nullptr);
}

}  // namespace Nimbrel

// The export filter's records: the table that it writes holds every word of every record.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "filter/opcodes.h"
#include "owned_filter.h"
#include "remote/export_filter.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Fuzzing;

using Words = std::array<unsigned long, sizeof(QPUOp) / sizeof(unsigned long)>;

void append_row(std::string& table, const QPUOp& op) {
    constexpr char digits[] = "0123456789abcdef";
    for (const unsigned long word : std::bit_cast<Words>(op)) {
        table += "0x";
        for (int shift = 60; shift >= 0; shift -= 4) table += digits[word >> shift & 15];
        table += "LL, ";
    }
    table += '\n';
}

/// What the filter shall write for the steps of a scenario.
std::string expected_table(const Scenario& scenario) {
    std::string table;
    for (const Step& step : scenario) {
        for (const QPUOp& op : step.records) append_row(table, op);
    }
    return table + "};\n";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteReader in(data, size);
    const bool has_file = in.byte() % 8 != 0;
    Scenario scenario = decode_scenario(in, {.qubits = 64});
    char* text = nullptr;
    std::size_t length = 0;
    Observation seen;
    {
        OwnedFilter<OpFilter_cuQuantum_Export> filter;
        if (has_file) filter->out = ::open_memstream(&text, &length);
        run_scenario(scenario, *filter, {.cut = Cut::as_decoded}, seen);
    }
    const std::string table(text == nullptr ? "" : text, length);
    std::free(text);
    if (table != (has_file ? expected_table(scenario) : "")) std::abort();
    return 0;
}

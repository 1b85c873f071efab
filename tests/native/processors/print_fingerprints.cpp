// Prints one of the stored lists: for each program a hash of its input and what its results are.
#include <cstdio>
#include <cstring>

#include "processors/differences.h"

namespace {

using namespace Nimbrel::Testing;

void print_programs() {
    for (unsigned number = 0; number < num_programs; ++number) {
        const Program program = make_program(number);
        std::printf("{0x%016lx, 0x%016lx},\n", fingerprint_of_input(program),
                    fingerprint_of_results(program));
    }
}

void print_any_angle_amplitudes() {
    for (unsigned number = 0; number < num_any_angle_programs; ++number) {
        const Program program = make_any_angle_program(number);
        std::printf("{0x%016lx, {", fingerprint_of_input(program));
        for (const auto& [re, im] : pulled_amplitudes(*run_program(program), program.qubits)) {
            std::printf("{%a, %a},", re, im);
        }
        std::puts("}},");
    }
}

void print_special_programs() {
    for (unsigned number = 0; number < num_special_programs; ++number) {
        const Program program = make_special_program(number);
        const auto amplitudes = pulled_amplitudes(*run_program(program), program.qubits);
        std::printf("{0x%016lx, 0x%016lx},\n", fingerprint_of_input(program),
                    fingerprint_without_nan_bits(amplitudes));
    }
}

}  // namespace

int main(int count, char** arguments) {
    const char* list = count == 2 ? arguments[1] : "";
    if (std::strcmp(list, "programs") == 0) {
        print_programs();
    } else if (std::strcmp(list, "any_angle") == 0) {
        print_any_angle_amplitudes();
    } else if (std::strcmp(list, "special") == 0) {
        print_special_programs();
    } else {
        std::fputs("usage: nimbrel_program_fingerprints programs|any_angle|special\n", stderr);
        return 2;
    }
}

// Prints the lines of program_fingerprints.inc: for each program a hash of its input and of its results.
#include <cstdio>

#include "processors/run_program.h"

int main() {
    using namespace Nimbrel::Testing;
    for (unsigned number = 0; number < num_programs; ++number) {
        const Program program = make_program(number);
        std::printf("{0x%016lx, 0x%016lx},\n", fingerprint_of_input(program),
                    fingerprint_of_results(program));
    }
}

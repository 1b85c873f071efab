/// Programs whose results differ between processors, and how much they may. Plain data.
#pragma once

#include <bit>
#include <cmath>

#include "processors/run_program.h"

namespace Nimbrel::Testing {

inline constexpr unsigned num_any_angle_programs = 40;
inline constexpr unsigned long any_angle_qubits = 3;
inline constexpr unsigned long any_angle_amplitudes = 1UL << any_angle_qubits;

/// A dense program with angles that no list has chosen.
inline Program make_any_angle_program(unsigned number) {
    RandomWords random(1000UL + number);
    std::vector<double> angles(50);
    for (double& angle : angles) angle = random.plus_minus() * 1000.0;
    return make_gate_program(Engine::dense, any_angle_qubits, random, angles);
}

inline constexpr unsigned num_special_programs = 60;

/// A program on a state with infinities, not-a-numbers and numbers at the ends of the range.
inline Program make_special_program(unsigned number) {
    constexpr double special[] = {HUGE_VAL, -HUGE_VAL, NAN, 0x1.8p1023, 5e-324, -0.0};
    RandomWords random(2000UL + number);
    const unsigned long qubits = 2 + random.below(8);
    Program program = make_gate_program(Engine::dense, qubits, random, exact_angles);
    program.normalizes = false;
    program.start.assign(1UL << qubits, {0.25, -0.5});
    for (unsigned i = 0; i < 4; ++i) {
        const unsigned long place = random.below(program.start.size());
        program.start[place].re = special[random.below(std::size(special))];
        program.start[place].im = special[random.below(std::size(special))];
    }
    return program;
}

/// A hash of amplitudes in which all not-a-numbers are one.
inline unsigned long fingerprint_without_nan_bits(const std::vector<complex_t>& amplitudes) {
    const auto merged = [](double part) { return std::isnan(part) ? NAN : part; };
    Fingerprint fingerprint;
    for (const complex_t& amplitude : amplitudes) {
        fingerprint.add(merged(amplitude.re));
        fingerprint.add(merged(amplitude.im));
    }
    return fingerprint.value();
}

}  // namespace Nimbrel::Testing

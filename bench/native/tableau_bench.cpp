// Times the tableau without a filter: a row product beside an exclusive-or of the same words, and
// single gates without a batch.
//
// Prints nanoseconds and ratios. Checks products and gates before it times them.
#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "clifford/tableau/stabilizer_state.h"

namespace {

constexpr int rounds = 15;

/// Nanoseconds of one call of `work`: the best round of `rounds`, each of `calls` calls.
template <typename Work>
double best_ns(int calls, Work&& work) {
    double best = 1e300;
    for (int round = 0; round < rounds; ++round) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < calls; ++i) work();
        const std::chrono::duration<double, std::nano> spent =
            std::chrono::steady_clock::now() - start;
        best = std::min(best, spent.count() / calls);
    }
    return best;
}

Stabilizer random_row(unsigned qubits, std::mt19937_64& rng) {
    Stabilizer row(qubits);
    for (unsigned q = 0; q < qubits; ++q) {
        if ((rng() & 1) != 0) row.x.set(q);
        if ((rng() & 1) != 0) row.z.set(q);
    }
    return row;
}

/// The phase of a product by population counts, to check the phase of `multiply`.
unsigned product_phase(const Stabilizer& left, const Stabilizer& right) {
    unsigned sum = 0U + left.phase + right.phase;
    for (std::size_t i = 0; i < left.x.words.size(); ++i) {
        const unsigned long lx = left.x.words[i];
        const unsigned long lz = left.z.words[i];
        const unsigned long rx = right.x.words[i];
        const unsigned long rz = right.z.words[i];
        const auto count = [](unsigned long word) {
            return static_cast<unsigned>(std::popcount(word));
        };
        sum += 3 * count(lx & lz) + 3 * count(rx & rz) + 2 * count(lx & rz) +
               count((lx ^ rx) & (lz ^ rz));
    }
    return sum & 3;
}

void xor_words(std::pmr::vector<unsigned long>& left,
               const std::pmr::vector<unsigned long>& right) {
    for (std::size_t i = 0; i < left.size(); ++i) left[i] ^= right[i];
}

[[noreturn]] void fail(const char* what) {
    std::fputs(what, stderr);
    std::exit(1);
}

void bench_products(unsigned qubits) {
    std::mt19937_64 rng(qubits);
    Stabilizer left = random_row(qubits, rng);
    const Stabilizer right = random_row(qubits, rng);
    for (int i = 0; i < 100; ++i) {
        const unsigned expected = product_phase(left, right);
        left.multiply(right);
        if (left.phase != expected) fail("a row product is wrong\n");
    }
    constexpr int calls = 20000;
    const double product = best_ns(calls, [&] { left.multiply(right); });
    const double plain = best_ns(calls, [&] {
        xor_words(left.x.words, right.x.words);
        xor_words(left.z.words, right.z.words);
    });
    std::printf("row product, %5u qubits: %7.1f ns, plain exclusive-or %7.1f ns, ratio %.2f\n",
                qubits, product, plain, product / plain);
}

/// A row with the letters `x`, `z` on two qubits, bit 0 for `first` and bit 1 for `second`.
Stabilizer row_of(unsigned qubits, unsigned first, unsigned second, unsigned x, unsigned z) {
    Stabilizer row(qubits);
    if ((x & 1) != 0) row.x.set(first);
    if ((x & 2) != 0) row.x.set(second);
    if ((z & 1) != 0) row.z.set(first);
    if ((z & 2) != 0) row.z.set(second);
    return row;
}

bool equal(const Stabilizer& a, const Stabilizer& b) {
    return a.phase == b.phase && a.x.words == b.x.words && a.z.words == b.z.words;
}

/// Compares two generators after a Hadamard, an S and a CNOT with those known: Z on the first qubit
/// becomes Y X, and Z on the last one becomes Z Z.
void check_gates(unsigned qubits) {
    const unsigned last = qubits - 1;
    StabilizerState state(qubits);
    state.had(0);
    state.sgate(0);
    state.cnot(0, last);
    if (!equal(state.stabilizers[0], row_of(qubits, 0, last, 3, 1)) ||
        !equal(state.stabilizers[last], row_of(qubits, 0, last, 0, 3))) {
        fail("a gate is wrong\n");
    }
}

void bench_gates(unsigned qubits) {
    check_gates(qubits);
    StabilizerState state(qubits);
    std::mt19937_64 rng(1);
    const auto qubit = [&] { return static_cast<unsigned long>(rng() % qubits); };
    const double rows = 2.0 * qubits;
    const double had = best_ns(200, [&] { state.had(qubit()); }) / rows;
    const double sgate = best_ns(200, [&] { state.sgate(qubit()); }) / rows;
    const double cnot =
        best_ns(200,
                [&] {
                    const unsigned long control = qubit();
                    state.cnot(control, (control + 1 + rng() % (qubits - 1)) % qubits);
                }) /
        rows;
    std::printf("one by one,  %5u qubits: Hadamard %.2f, S %.2f, CNOT %.2f ns a row\n", qubits, had,
                sgate, cnot);
}

}  // namespace

int main() {
    for (const unsigned qubits : {64U, 200U, 1000U, 2000U, 10000U}) bench_products(qubits);
    for (const unsigned qubits : {64U, 200U, 1000U, 2000U}) bench_gates(qubits);
    return 0;
}

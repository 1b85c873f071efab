#include "clifford/tableau/gate_batch.h"

#include <algorithm>

#include "support/bits.h"

namespace {

using Kind = CliffordGate::Kind;

bool has_two_qubits(const CliffordGate& gate) {
    return gate.kind == Kind::cnot || gate.kind == Kind::cz;
}

/// Applies a gate to all rows of a block, by the rules of `StabilizerState`. Returns the rows whose
/// sign changes.
RowBits apply_to_columns(BitColumns& columns, const CliffordGate& gate) {
    BitColumn& a = columns[gate.a];
    const RowBits x = RowBits::load(a.x);
    const RowBits z = RowBits::load(a.z);
    switch (gate.kind) {
        case Kind::x:
            return z;
        case Kind::y:
            return x ^ z;
        case Kind::z:
            return x;
        case Kind::had:
            z.store(a.x);
            x.store(a.z);
            return x & z;
        case Kind::s:
            (x ^ z).store(a.z);
            return x & z;
        case Kind::cnot: {
            BitColumn& target = columns[gate.b];
            const RowBits target_z = RowBits::load(target.z);
            (RowBits::load(target.x) ^ x).store(target.x);
            (RowBits::load(a.z) ^ target_z).store(a.z);
            return (x & target_z) - (RowBits::load(target.x) ^ RowBits::load(a.z));
        }
        case Kind::cz: {
            BitColumn& other = columns[gate.b];
            (RowBits::load(other.z) ^ x).store(other.z);
            (RowBits::load(a.z) ^ RowBits::load(other.x)).store(a.z);
            return {};
        }
    }
    return {};
}

void flip_signs(std::span<Stabilizer* const> rows, RowBits flips) {
    alignas(64) RowBits::Words words;
    flips.store(words);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const unsigned long flip = words[i / 64] >> i % 64 & 1;
        rows[i]->phase = static_cast<unsigned short>(rows[i]->phase ^ flip << 1);
    }
}

}  // namespace

void apply_to_rows(StabilizerState& state, const CliffordGate& gate) {
    switch (gate.kind) {
        case Kind::x:
            return state.px(gate.a);
        case Kind::y:
            return state.py(gate.a);
        case Kind::z:
            return state.pz(gate.a);
        case Kind::had:
            return state.had(gate.a);
        case Kind::s:
            return state.sgate(gate.a);
        case Kind::cnot:
            return state.cnot(gate.a, gate.b);
        case Kind::cz:
            return state.cz(gate.a, gate.b);
    }
}

void GateBatch::run(StabilizerState& state) {
    if (gates_.empty()) return;
    // To transpose one word of all rows costs as much as applying about six gates.
    constexpr std::size_t gates_to_transpose_a_word = 6;
    find_words(Nimbrel::words_for_bits(state.num_qubits));
    if (gates_.size() > gates_to_transpose_a_word * words_.size()) {
        run_on_columns(state);
    } else {
        for (const CliffordGate& gate : gates_) apply_to_rows(state, gate);
    }
    gates_.clear();
}

void GateBatch::find_words(std::size_t words_per_row) {
    place_of_.assign(words_per_row, 0);
    for (const CliffordGate& gate : gates_) {
        place_of_[Nimbrel::word_of(gate.a)] = 1;
        if (has_two_qubits(gate)) place_of_[Nimbrel::word_of(gate.b)] = 1;
    }
    words_.clear();
    for (unsigned word = 0; word < words_per_row; ++word) {
        if (place_of_[word] == 0) continue;
        place_of_[word] = static_cast<unsigned>(words_.size());
        words_.push_back(word);
    }
}

/// Replaces the qubits of the gates by the numbers of their columns.
void GateBatch::rename_qubits_to_columns() {
    const auto column_of = [this](unsigned qubit) {
        const auto bits = static_cast<unsigned>(Nimbrel::bits_per_word);
        return place_of_[Nimbrel::word_of(qubit)] * bits + qubit % bits;
    };
    for (CliffordGate& gate : gates_) {
        gate.a = column_of(gate.a);
        if (has_two_qubits(gate)) gate.b = column_of(gate.b);
    }
}

void GateBatch::run_on_columns(StabilizerState& state) {
    columns_.reserve(words_.size());  // may throw, so it comes before the gates are changed
    rename_qubits_to_columns();
    const std::size_t count = 2UL * state.num_rows;
    for (std::size_t first = 0; first < count; first += rows_per_block) {
        const std::size_t size = std::min(rows_per_block, count - first);
        for (std::size_t i = 0; i < size; ++i) {
            const std::size_t row = (first + i) / 2;
            rows_[i] = i % 2 == 0 ? &state.stabilizers[row] : &state.destabilizers[row];
        }
        const std::span<Stabilizer* const> rows(rows_.data(), size);
        columns_.read_from_rows(rows, words_);
        RowBits flips;
        for (const CliffordGate& gate : gates_) flips = flips ^ apply_to_columns(columns_, gate);
        columns_.write_to_rows();
        flip_signs(rows, flips);
    }
}

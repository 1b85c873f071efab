// Conjugation of the whole tableau by one gate, row by row. The rules do not branch on the bits of
// a row, because the processor cannot predict them.
#include "clifford/tableau/stabilizer_state.h"
#include "support/bits.h"

namespace {

/// Read and toggle access to one qubit of a row. Uses the low 32 bits of the qubit number.
class Letter {
  public:
    Letter(Stabilizer& row, unsigned long qubit)
        : x_word_(row.x.words[word(qubit)]),
          z_word_(row.z.words[word(qubit)]),
          shift_(qubit % Nimbrel::bits_per_word) {}

    unsigned long x() const { return x_word_ >> shift_ & 1; }
    unsigned long z() const { return z_word_ >> shift_ & 1; }
    void toggle_x(unsigned long bit) { x_word_ ^= bit << shift_; }
    void toggle_z(unsigned long bit) { z_word_ ^= bit << shift_; }

  private:
    static unsigned long word(unsigned long qubit) {
        return Nimbrel::word_of(static_cast<unsigned>(qubit));
    }

    unsigned long& x_word_;
    unsigned long& z_word_;
    unsigned long shift_;
};

/// Negates the row if the bit is 1.
void flip_sign(Stabilizer& row, unsigned long bit) {
    row.phase = static_cast<unsigned short>(row.phase ^ bit << 1);
}

}  // namespace

template <typename Rule>
void StabilizerState::for_each_row(Rule&& rule) {
    for (unsigned i = 0; i < num_rows; ++i) {
        rule(stabilizers[i]);
        rule(destabilizers[i]);
    }
}

void StabilizerState::px(unsigned long qubit) {
    for_each_row([qubit](Stabilizer& row) { flip_sign(row, Letter(row, qubit).z()); });
}

void StabilizerState::pz(unsigned long qubit) {
    for_each_row([qubit](Stabilizer& row) { flip_sign(row, Letter(row, qubit).x()); });
}

void StabilizerState::py(unsigned long qubit) {
    for_each_row([qubit](Stabilizer& row) {
        const Letter letter(row, qubit);
        flip_sign(row, letter.x() ^ letter.z());
    });
}

void StabilizerState::had(unsigned long qubit) {
    for_each_row([qubit](Stabilizer& row) {
        Letter letter(row, qubit);
        flip_sign(row, letter.x() & letter.z());
        const unsigned long differ = letter.x() ^ letter.z();
        letter.toggle_x(differ);
        letter.toggle_z(differ);
    });
}

void StabilizerState::sgate(unsigned long qubit) {
    for_each_row([qubit](Stabilizer& row) {
        Letter letter(row, qubit);
        flip_sign(row, letter.x() & letter.z());
        letter.toggle_z(letter.x());
    });
}

void StabilizerState::cnot(unsigned long control, unsigned long target) {
    for_each_row([control, target](Stabilizer& row) {
        Letter from(row, control);
        Letter to(row, target);
        const unsigned long x = from.x();
        const unsigned long z = to.z();
        to.toggle_x(x);
        from.toggle_z(z);
        flip_sign(row, x & z & ~(to.x() ^ from.z()));
    });
}

void StabilizerState::cz(unsigned long a, unsigned long b) {
    for_each_row([a, b](Stabilizer& row) {
        Letter first(row, a);
        Letter second(row, b);
        second.toggle_z(first.x());
        first.toggle_z(second.x());
    });
}

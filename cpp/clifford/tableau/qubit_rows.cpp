// The rows of a tableau that is stored qubit by qubit.
#include <algorithm>

#include "clifford/tableau/bit_square.h"
#include "clifford/tableau/qubit_tableau.h"
#include "support/bits.h"

/// Makes rows, up to 64 at a time, from the words with this number in each origin.
class QubitTableau::RowMaker {
  public:
    RowMaker(const QubitTableau& tableau, std::size_t word, std::span<Stabilizer> rows)
        : tableau_(tableau), word_(word), rows_(rows) {}

    void copy_letters() {
        copy_part(&Stabilizer::x, &OriginPair::z);
        copy_part(&Stabilizer::z, &OriginPair::x);
    }

    /// Requires: the letters of the rows are there.
    void set_signs() {
        std::vector<unsigned long> product(tableau_.words_of_string_);
        for (std::size_t i = 0; i < rows_.size(); ++i) {
            std::fill(product.begin(), product.end(), 0UL);
            const unsigned long flips =
                tableau_.flips_.empty() ? 0 : tableau_.flips_[word_] >> i & 1;
            const unsigned exponent = exponent_of_origin(rows_[i], product.data());
            rows_[i].phase = static_cast<unsigned short>((exponent ^ flips << 1) & 3);
        }
    }

  private:
    void copy_part(PauliBits Stabilizer::* part, Origin OriginPair::* origin) {
        const std::size_t row_words = Nimbrel::words_for_bits(tableau_.num_qubits_);
        for (std::size_t group = 0; group < row_words; ++group) {
            BitSquare square = gather(group, origin);
            transpose(square);
            for (std::size_t i = 0; i < rows_.size(); ++i)
                (rows_[i].*part).words[group] = square[i];
        }
    }

    BitSquare gather(std::size_t group, Origin OriginPair::* origin) const {
        BitSquare square{};
        const std::size_t first = group * square_side;
        const std::size_t count = std::min<std::size_t>(square_side, tableau_.num_qubits_ - first);
        for (std::size_t i = 0; i < count; ++i) {
            square[i] = tableau_.words_of(tableau_.origins_[first + i].*origin)[word_];
        }
        return square;
    }

    /// The product of the origins of a row's letters is the X or Z that the row is the image of, up
    /// to the row's sign. Returns the phase of that product. Requires: `product` is the identity.
    unsigned exponent_of_origin(const Stabilizer& row, unsigned long* product) const {
        unsigned exponent = 0;
        StringBlocks blocks;
        const auto multiply = [&](const Origin& origin) {
            const StringProduct step = tableau_.product_(tableau_.shape_, product, blocks,
                                                         tableau_.words_of(origin), origin.blocks);
            blocks = step.blocks;
            exponent += step.exponent + 2 * origin.sign();
        };
        for (unsigned qubit = 0; qubit < tableau_.num_qubits_; ++qubit) {
            const OriginPair& pair = tableau_.origins_[qubit];
            const bool x = row.x.test(qubit);
            const bool z = row.z.test(qubit);
            if (x) multiply(pair.x);
            if (z) multiply(pair.z);
            if (x && z) ++exponent;  // Y is i X Z
        }
        return exponent & 3;
    }

    const QubitTableau& tableau_;
    std::size_t word_;
    std::span<Stabilizer> rows_;
};

void QubitTableau::copy_generators(unsigned first, std::span<Stabilizer> rows) {
    if (!projections_.empty()) finish_projections();
    RowMaker maker(*this, Nimbrel::word_of(first), rows);
    maker.copy_letters();
    maker.set_signs();
}

void QubitTableau::copy_destabilizers(unsigned first, std::span<Stabilizer> rows) {
    if (!projections_.empty()) finish_projections();
    RowMaker maker(*this, shape_.words + Nimbrel::word_of(first), rows);
    maker.copy_letters();
    maker.set_signs();
}

#include "clifford/tableau/projection_batch.h"

#include <algorithm>
#include <bit>

namespace {

unsigned parity(unsigned bits) { return static_cast<unsigned>(std::popcount(bits)) & 1U; }

/// Products take 2^capacity strings beside the 2 n strings of a tableau: at most 2 % more memory.
unsigned capacity_for(unsigned qubits, unsigned most) {
    constexpr unsigned qubits_of_a_product = 24;
    const auto width = static_cast<unsigned>(std::bit_width(qubits / qubits_of_a_product));
    return std::clamp(width, 2U, most + 1) - 1;
}

}  // namespace

ProjectionBatch::ProjectionBatch(const StringShape& shape, MultiplyStrings product, unsigned qubits)
    : shape_(shape),
      multiply_(product),
      capacity_(capacity_for(qubits, max_capacity)),
      letters_((1UL << capacity_) * 2 * shape.words),
      products_(1UL << capacity_),
      z_bits_((1UL << capacity_) * capacity_),
      chosen_(1UL << capacity_) {
    places_.reserve(capacity_);
    groups_.reserve(capacity_);
}

bool ProjectionBatch::accepts(const unsigned long* letters) const {
    return count_ < capacity_ &&
           std::none_of(
               places_.begin(), places_.end(),
               [letters](const RowPlace& place) { return (letters[place.word] & place.bit) != 0; });
}

void ProjectionBatch::add(unsigned row, const unsigned long* letters, StringBlocks blocks,
                          unsigned sign) {
    const unsigned number = count_++;
    places_.emplace_back(shape_, row);
    const unsigned chosen = 1U << number;
    std::copy_n(letters, 2UL * shape_.words, letters_of(chosen));
    products_[chosen] = {blocks, 0, static_cast<unsigned char>(sign), true};
}

void ProjectionBatch::prepare() {
    for (unsigned j = 0; j < count_; ++j) {
        x_at_[j] = z_at_[j] = 0;
        for (unsigned i = 0; i < count_; ++i) {
            const unsigned long* const letters = letters_of(1U << i);
            const unsigned long bit = places_[j].bit;
            if ((letters[places_[j].word] & bit) != 0) x_at_[j] |= 1U << i;
            if ((letters[shape_.words + places_[j].word] & bit) != 0) z_at_[j] |= 1U << i;
        }
    }
    groups_.clear();
    blocks_ = 0;
    for (unsigned j = 0; j < count_; ++j) {
        const RowPlace& place = places_[j];
        blocks_ |= place.block;
        const auto group = std::find_if(groups_.begin(), groups_.end(),
                                        [&](const RowGroup& g) { return g.word == place.word; });
        if (group != groups_.end()) {
            group->rows |= place.bit;
        } else {
            groups_.push_back({place.word, place.bit});
        }
    }
    for (unsigned bits = 0; bits < 1U << count_; ++bits) {
        chosen_[bits] = static_cast<unsigned char>(chosen_by(bits));
        if (!std::has_single_bit(bits)) products_[bits].is_made = false;
    }
    for (unsigned j = 0; j < count_; ++j) make_places(1U << j);
}

// A string that multiplies the origin changes its x bits at the rows of later projections.
unsigned ProjectionBatch::chosen_by(unsigned x_bits) const {
    unsigned chosen = 0;
    for (unsigned j = 0; j < count_; ++j) {
        chosen |= ((x_bits >> j & 1) ^ parity(chosen & x_at_[j])) << j;
    }
    return chosen;
}

// The place of a projection has a Z after it if its string multiplied. Later strings change that.
void ProjectionBatch::make_places(unsigned chosen) {
    unsigned long* const bits = &z_bits_[chosen * capacity_];
    for (std::size_t g = 0; g < groups_.size(); ++g) {
        bits[g] = 0;
        for (unsigned j = 0; j < count_; ++j) {
            if (places_[j].word != groups_[g].word) continue;
            const unsigned later = chosen & ~0U << (j + 1);
            if (((chosen >> j & 1) ^ parity(later & z_at_[j])) != 0) bits[g] |= places_[j].bit;
        }
    }
}

void ProjectionBatch::make(unsigned chosen) {
    const unsigned last = std::bit_floor(chosen);
    const unsigned others = chosen ^ last;
    if (!products_[others].is_made) make(others);
    std::copy_n(letters_of(others), 2UL * shape_.words, letters_of(chosen));
    const StringProduct product = multiply_(shape_, letters_of(chosen), products_[others].blocks,
                                            letters_of(last), products_[last].blocks);
    const unsigned exponent = products_[others].exponent + product.exponent;
    const unsigned sign = products_[others].sign ^ products_[last].sign;
    products_[chosen] = {product.blocks, static_cast<unsigned char>(exponent & 3),
                         static_cast<unsigned char>(sign), true};
    make_places(chosen);
}

void ProjectionBatch::apply(Origin& origin, unsigned long* letters) {
    if (((origin.blocks.x | origin.blocks.z) & blocks_) == 0) return;
    unsigned x_bits = 0;
    for (unsigned j = 0; j < count_; ++j) {
        x_bits |= static_cast<unsigned>((letters[places_[j].word] & places_[j].bit) != 0) << j;
    }
    unsigned long* const z_part = letters + shape_.words;
    if (x_bits == 0) {
        for (const RowGroup& group : groups_) {
            if ((z_part[group.word] & group.rows) != 0) z_part[group.word] &= ~group.rows;
        }
        return;
    }
    const unsigned chosen = chosen_[x_bits];
    if (!products_[chosen].is_made) make(chosen);
    const Product& factor = products_[chosen];
    const StringProduct product =
        multiply_(shape_, letters, origin.blocks, letters_of(chosen), factor.blocks);
    origin.flip(((product.exponent + factor.exponent) & 3U) / 2 ^ factor.sign);
    origin.blocks = product.blocks;
    origin.blocks.z |= blocks_;
    const unsigned long* const bits = &z_bits_[chosen * capacity_];
    for (std::size_t g = 0; g < groups_.size(); ++g) {
        unsigned long& word = z_part[groups_[g].word];
        word = (word & ~groups_[g].rows) | bits[g];
    }
}

void ProjectionBatch::apply_rest(Origin& origin, unsigned long* letters) {
    for (unsigned number = origin.stage(); number < count_; ++number) {
        apply_one(number, origin, letters);
    }
    origin.set_stage(count_);
}

void ProjectionBatch::apply_one(unsigned number, Origin& origin, unsigned long* letters) {
    const RowPlace& at = places_[number];
    unsigned long& z_word = letters[shape_.words + at.word];
    if ((letters[at.word] & at.bit) == 0) {
        z_word &= ~at.bit;
        return;
    }
    const unsigned chosen = 1U << number;
    const Product& factor = products_[chosen];
    const StringProduct product =
        multiply_(shape_, letters, origin.blocks, letters_of(chosen), factor.blocks);
    origin.flip(product.exponent / 2 ^ factor.sign);
    origin.blocks = product.blocks;
    origin.blocks.z |= at.block;
    z_word |= at.bit;
}

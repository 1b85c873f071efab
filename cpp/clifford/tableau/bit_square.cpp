#include "clifford/tableau/bit_square.h"

namespace {

/// In every sub-square of 2 * Half rows and columns, swaps the upper right and lower left quarter.
template <std::size_t Half>
void exchange_quarters(BitSquare& square, unsigned long low_halves) {
    for (std::size_t top = 0; top < square_side; top += 2 * Half) {
        for (std::size_t i = top; i < top + Half; ++i) {
            const unsigned long moved = ((square[i] >> Half) ^ square[i + Half]) & low_halves;
            square[i] ^= moved << Half;
            square[i + Half] ^= moved;
        }
    }
}

}  // namespace

void transpose(BitSquare& square) {
    exchange_quarters<32>(square, 0x00000000FFFFFFFF);
    exchange_quarters<16>(square, 0x0000FFFF0000FFFF);
    exchange_quarters<8>(square, 0x00FF00FF00FF00FF);
    exchange_quarters<4>(square, 0x0F0F0F0F0F0F0F0F);
    exchange_quarters<2>(square, 0x3333333333333333);
    exchange_quarters<1>(square, 0x5555555555555555);
}

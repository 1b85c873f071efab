/// A square of 64 x 64 bits and its transposition, which turns bits of rows into bits of qubits.
///
/// Pure functions, callable from any thread.
#pragma once

#include <array>

inline constexpr std::size_t square_side = 64;

/// Bit c of word r is the bit of column c in row r.
using BitSquare = std::array<unsigned long, square_side>;

/// Moves bit c of word r to bit r of word c.
void transpose(BitSquare& square);

/// The process-wide generator behind all measurement outcomes that follow `random_seed`.
///
/// One generator serves every filter, so a seed fixes a whole process's run. Nothing here locks:
/// draws belong to the thread that runs a dispatcher.
#pragma once

#include <random>

extern std::random_device rand_device;
extern std::mt19937 random_gen;
extern std::uniform_real_distribution<double> random_dist_0_to_1;
extern std::uniform_real_distribution<double> random_dist_plus_minus;

/// Re-seeds the generator; every seed is accepted, 0 too.
void set_random_seed(unsigned int seed);

/// A double from 0 up to but not including 1, from two 32-bit outputs.
double random_zero_to_one();

/// A double from -1 up to but not including 1, from two 32-bit outputs.
double random_plus_minus();

/// An unsigned number from `low` to `high`, both included, without modulo bias.
/// Requires: `low` is not above `high`.
unsigned int random_int_inclusive(unsigned int low, unsigned int high);

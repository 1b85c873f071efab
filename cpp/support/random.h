/// The random generator of the process. `random_seed` seeds it, and every measurement draws from
/// it.
///
/// All filters use the same generator, so one seed determines the outcomes of the whole process.
/// There is no lock: only the thread that runs a dispatcher may draw.
#pragma once

#include <random>

extern std::random_device rand_device;
extern std::mt19937 random_gen;
extern std::uniform_real_distribution<double> random_dist_0_to_1;
extern std::uniform_real_distribution<double> random_dist_plus_minus;

/// Seeds the generator. Accepts every seed, also 0.
void set_random_seed(unsigned int seed);

/// A double in [0, 1), from two 32-bit outputs.
double random_zero_to_one();

/// A double in [-1, 1), from two 32-bit outputs.
double random_plus_minus();

/// A uniform number from `low` to `high`, both included, without modulo bias.
/// Requires: `low` is not above `high`.
unsigned int random_int_inclusive(unsigned int low, unsigned int high);

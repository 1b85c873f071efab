#include "support/random.h"

// Runs when the library is loaded, on whatever processor that may be: this source is compiled
// without the engine's instruction sets, and what draws from the generator stands elsewhere.

// The generator stands before the engine's other statics are made, whatever the link order.
[[gnu::init_priority(1000)]] std::random_device rand_device("default");
[[gnu::init_priority(1001)]] std::mt19937 random_gen(rand_device());
[[gnu::init_priority(1002)]] std::uniform_real_distribution<double> random_dist_0_to_1(0.0, 1.0);
[[gnu::init_priority(1003)]] std::uniform_real_distribution<double> random_dist_plus_minus(-1.0,
                                                                                           1.0);

void set_random_seed(unsigned int seed) { random_gen.seed(seed); }

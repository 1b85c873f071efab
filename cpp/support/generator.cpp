#include "support/random.h"

// Runs when the library is loaded, before the test of the processor. So this source is compiled
// without the engine's instruction sets, and the functions that draw are in another source.

namespace {

// libstdc++ reads the token as the name of a source, libc++ as the name of a file.
#ifdef _LIBCPP_VERSION
constexpr const char* random_source = "/dev/urandom";
#else
constexpr const char* random_source = "default";
#endif

}  // namespace

// The priorities make the generator exist before the engine's other static objects.
[[gnu::init_priority(1000)]] std::random_device rand_device(random_source);
[[gnu::init_priority(1001)]] std::mt19937 random_gen(rand_device());
[[gnu::init_priority(1002)]] std::uniform_real_distribution<double> random_dist_0_to_1(0.0, 1.0);
[[gnu::init_priority(1003)]] std::uniform_real_distribution<double> random_dist_plus_minus(-1.0,
                                                                                           1.0);

void set_random_seed(unsigned int seed) { random_gen.seed(seed); }

#include "sparse/term.h"

#include <stdexcept>
#include <string>

#include "support/available_memory.h"

namespace Nimbrel {

void require_memory_for_terms(const char* refusal, std::size_t count) {
    if (const auto shortage = find_shortage(count * sizeof(term_t))) {
        throw std::runtime_error(std::string("Error: ") + refusal + " of " + std::to_string(count) +
                                 " terms." + shortage->text());
    }
}

}  // namespace Nimbrel

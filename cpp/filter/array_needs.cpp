#include "filter/array_needs.h"

namespace Nimbrel {

ArrayNeeds ArrayRules::pull_state_needs(unsigned long /*length*/) const { return {}; }

ArrayNeeds ArrayRules::pull_state_specific_needs(unsigned long /*selector*/,
                                                 unsigned long /*length*/) const {
    return {};
}

ArrayNeeds ArrayRules::push_state_needs(unsigned long /*selector*/) const { return {}; }

ArrayNeeds ArrayRules::check_state_needs(const complex_t* /*expected*/, unsigned long /*length*/,
                                         double /*tolerance*/) const {
    return {};
}

ArrayNeeds ArrayRules::override_state_buffer_needs(unsigned long /*num_qubits*/) const {
    return {};
}

ArrayNeeds ArrayRules::peek_n_biggest_terms_needs(unsigned long /*count*/) const { return {}; }

ArrayNeeds ArrayRules::peek_value_needs() const { return {}; }

const ArrayRules& no_array_rules() {
    struct NoArrayRules final : ArrayRules {};
    static constexpr NoArrayRules rules;
    return rules;
}

}  // namespace Nimbrel

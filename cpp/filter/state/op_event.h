/// Events: the report of a failed assertion to Python, and the stack of a program's open events.
///
/// Both belong to one filter. Used only by the thread that runs a dispatcher or a wrapper.
#pragma once

#include <string>
#include <vector>

namespace Nimbrel {

/// One failed assertion, with a copy of the events that were open at that time.
struct OpEvent {
    std::string name;     ///< name of the assertion, such as "free_nonzero_qubits"
    std::string message;  ///< text for the user
    unsigned int code = 0;
    unsigned long aux = 0;
    std::vector<unsigned long> ids;     ///< open event ids, outermost first
    std::vector<unsigned long> values;  ///< one word for each entry of `ids`
};

/// The events that the program has opened and not yet closed.
struct OpEventStack {
    unsigned long reserved = 0;  ///< not used
    std::vector<unsigned long> ids;
    std::vector<unsigned long> values;

    void push(unsigned long id);

    /// Removes the latest entry with this id. An id that is not open has no effect, because a jump
    /// may have skipped the record that opens it.
    void pop(unsigned long id);
};

}  // namespace Nimbrel

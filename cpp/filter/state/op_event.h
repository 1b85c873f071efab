/// Events: how a failed assertion reaches Python, and the stack of events that a program has open.
///
/// All of it belongs to one filter and is touched only by the thread that runs a dispatcher or a
/// wrapper.
#pragma once

#include <string>
#include <vector>

namespace Nimbrel {

/// One report for Python, with a copy of the events that were open when it was made.
struct OpEvent {
    std::string name;     ///< name of the assertion, such as "free_nonzero_qubits"
    std::string message;  ///< text for the user
    unsigned int code = 0;
    unsigned long aux = 0;
    std::vector<unsigned long> ids;     ///< open event ids, outermost first
    std::vector<unsigned long> values;  ///< companion words of `ids`, index by index
};

/// Ids of the events that the program has opened and not yet closed.
struct OpEventStack {
    unsigned long reserved = 0;  ///< part of the layout; nothing reads it
    std::vector<unsigned long> ids;
    std::vector<unsigned long> values;

    void push(unsigned long id);

    /// Removes the latest entry with this id, wherever it stands; an id that is not open is let
    /// pass, since a program may close what a skipped stretch should have opened.
    void pop(unsigned long id);
};

}  // namespace Nimbrel

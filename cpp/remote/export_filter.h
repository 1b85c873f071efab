/// The export filter: writes records as rows of a constant table in a source file.
///
/// Native callers create it and use it on their own thread.
#pragma once

#include <cstdio>
#include <string>

#include "filter/op_filter.h"
#include "support/exported.h"

namespace Nimbrel {

/// Writes every record as one line of eleven constants and simulates nothing. Has no type name: the
/// native caller that creates it opens the file and writes the text before the table.
class NIMBREL_EXPORTED OpFilter_cuQuantum_Export : public OpFilter {
  public:
    OpFilter_cuQuantum_Export();

    /// Ends the table and closes the file, if there is one.
    ~OpFilter_cuQuantum_Export() override;

    /// Does nothing without a file.
    void put_instructions(const QPUOp* ops, unsigned long num_ops) override;

    /// Whether there is a file.
    void get_status(std::string& result) override;

    std::FILE* out = nullptr;  ///< owned once set
};

}  // namespace Nimbrel

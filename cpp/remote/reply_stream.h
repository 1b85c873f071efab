/// The records that a wait has received from the service. For one thread.
#pragma once

#include <array>
#include <cstddef>

#include "filter/qpu_op.h"

namespace Nimbrel {

/// The first record of one wait and the number of bytes that have arrived.
///
/// The wait reads the first record only, so the bytes after it are counted and not stored. A
/// service that never stops sending therefore uses no memory.
class ReplyStream {
  public:
    void append(const char* bytes, std::size_t size);

    /// Number of complete records received.
    std::size_t num_records() const { return size_ / sizeof(QPUOp); }

    /// Whether the first record is a fetch reply. Requires: one record is complete.
    bool begins_with_reply() const;

    QPUOp first_record() const;

  private:
    std::array<char, sizeof(QPUOp)> head_{};
    std::size_t size_ = 0;  ///< bytes received
};

}  // namespace Nimbrel

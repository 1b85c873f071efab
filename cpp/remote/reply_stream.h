/// What a wait has received of the service's records.
#pragma once

#include <array>
#include <cstddef>

#include "filter/qpu_op.h"

namespace Nimbrel {

/// The bytes of one wait, of which the first record and the number of records matter.
///
/// A walk over the records looks at the first one every time, so nothing behind it is kept: a
/// service that sends without end costs no memory. Used by one thread.
class ReplyStream {
  public:
    void append(const char* bytes, std::size_t size);

    /// Whole records received so far.
    std::size_t num_records() const { return size_ / sizeof(QPUOp); }

    /// Whether the first record is a fetch reply. Requires: there is a record.
    bool begins_with_reply() const;

    QPUOp first_record() const;

  private:
    std::array<char, sizeof(QPUOp)> head_{};
    std::size_t size_ = 0;  ///< bytes received
};

}  // namespace Nimbrel

#include "remote/reply_stream.h"

#include <algorithm>
#include <bit>

#include "filter/opcodes.h"

namespace Nimbrel {

void ReplyStream::append(const char* bytes, std::size_t size) {
    if (size_ < head_.size()) {
        std::copy_n(bytes, std::min(size, head_.size() - size_), head_.begin() + size_);
    }
    size_ += size;
}

QPUOp ReplyStream::first_record() const { return std::bit_cast<QPUOp>(head_); }

bool ReplyStream::begins_with_reply() const { return first_record().opcode == OP_FETCH_REPLY; }

}  // namespace Nimbrel

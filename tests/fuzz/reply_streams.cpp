// The socket filter: records that it sends, and streams of replies. A model tells which flags each
// wait may store.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>

#include "filter/opcodes.h"
#include "network_script.h"
#include "owned_filter.h"
#include "remote/connect_filter.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Fuzzing;

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "the socket filter: %s\n", what);
    std::abort();
}

/// Read flags that replies have stored.
class FlagModel {
  public:
    /// The stream of one wait.
    void store(const std::string& stream) {
        if (stream.size() < sizeof(QPUOp)) return;
        QPUOp reply{};
        std::memcpy(&reply, stream.data(), sizeof reply);
        if (reply.opcode != OP_FETCH_REPLY) return;
        for (unsigned bit = 0; bit < 64 && bit < reply.cond_mask; ++bit) {
            if ((reply.cond_flag >> bit & 1) == 0) continue;
            store(static_cast<long>(reply.target_mask + bit), (reply.read_flag >> bit & 1) != 0);
        }
    }

    bool agrees_with(const std::vector<unsigned long>& words) const {
        const std::size_t size = flags_.empty() ? 0 : flags_.rbegin()->first / 64 + 1;
        if (words.size() != size) return false;
        for (std::size_t i = 0; i < size * 64; ++i) {
            const auto found = flags_.find(i);
            const bool expected = found != flags_.end() && found->second;
            if (((words[i / 64] >> i % 64 & 1) != 0) != expected) return false;
        }
        return true;
    }

  private:
    void store(long flag, bool value) {
        if (flag >= -1 && flag <= 1) return;
        const auto number = static_cast<unsigned long>(flag);
        flags_[(flag < 0 ? 0 - number : number) % few_flags] = value != (flag < 0);
    }

    std::map<std::size_t, bool> flags_;
};

QPUOp decode_reply(ByteReader& in) {
    constexpr unsigned long firsts[] = {
        2, 3, 60, 0, 1, ~0UL, ~0UL - 5, few_flags - 2, 1UL << 63, (1UL << 63) - 1};
    QPUOp op{};
    op.opcode = in.byte() < 0xC0 ? OP_FETCH_REPLY : opcode_tag | in.byte();
    op.target_mask = in.byte() < 0xE0 ? in.one_of(firsts) : in.word();
    op.cond_mask = in.byte() < 0xE0 ? in.below(70) : in.word();
    op.cond_flag = in.byte() < 0x80 ? -1 : static_cast<long>(in.word());
    op.read_flag = static_cast<long>(in.word());
    return op;
}

/// Whole records, parts of one, or bytes as they are.
std::string decode_bytes(ByteReader& in) {
    const unsigned kind = in.byte();
    if (kind >= 0xF8) return std::string(in.byte() * 64, '\x11');
    if (kind >= 0xE0) {
        const auto raw = in.bytes(in.byte());
        return {raw.begin(), raw.end()};
    }
    const QPUOp reply = decode_reply(in);
    std::string bytes(sizeof reply, '\0');
    std::memcpy(bytes.data(), &reply, sizeof reply);
    if (kind < 0x80) return bytes;
    const std::size_t cut = in.byte() % sizeof reply;
    return kind < 0xB0 ? bytes.substr(0, cut) : bytes.substr(cut);
}

ScriptedRead decode_read(ByteReader& in) {
    constexpr int errors[] = {EAGAIN, ETIMEDOUT, EEXIST, ECONNRESET, EINTR};
    const unsigned kind = in.byte();
    if (kind >= 0xF0) return {.error = in.one_of(errors)};
    if (kind >= 0xE8) return {};
    return {.bytes = decode_bytes(in)};
}

std::vector<std::vector<ScriptedRead>> decode_polls(ByteReader& in) {
    std::vector<std::vector<ScriptedRead>> polls(in.below(5));
    for (auto& poll : polls) {
        const unsigned reads = in.below(4);
        for (unsigned i = 0; i < reads; ++i) poll.push_back(decode_read(in));
    }
    return polls;
}

std::vector<QPUOp> decode_records(ByteReader& in) {
    std::vector<QPUOp> records(in.below(5));
    for (QPUOp& op : records) {
        const unsigned first = in.byte();
        if (first < 0x90) {
            op.opcode = OP_FETCH_REQUEST;
        } else {
            op = decode_record(first, in, {.qubits = 64}).op;
        }
    }
    return records;
}

class Session {
  public:
    explicit Session(double timeout) {
        filter_->sock = NetworkScript::descriptor;
        filter_->timeout = timeout;
    }
    ~Session() { filter_->sock = -1; }

    void call(ByteReader& in) {
        const std::vector<QPUOp> records = decode_records(in);
        NetworkScript script(decode_polls(in), in.byte() < 0xC0 ? 1 << 20 : in.byte() - 1);
        const bool connected = filter_->sock >= 0;
        bool refused = false;
        try {
            filter_->put_instructions(records.data(), records.size());
        } catch (const std::exception&) {
            refused = true;
        }
        require(refused == !connected, "refuses records while it is connected");
        require_sent(script, records, connected);
        const bool asks = std::any_of(records.begin(), records.end(), [](const QPUOp& op) {
            return op.opcode == OP_FETCH_REQUEST;
        });
        require(asks || script.delivered.empty(), "reads without a request");
        model_.store(script.delivered);
        require(model_.agrees_with(filter_->qpu->read_flags),
                "stores other flags than the reply's");
        if (in.byte() < 0x80) filter_->sock = NetworkScript::descriptor;
    }

  private:
    static void require_sent(const NetworkScript& script, const std::vector<QPUOp>& records,
                             bool connected) {
        const std::string bytes(reinterpret_cast<const char*>(records.data()),
                                connected ? records.size() * sizeof(QPUOp) : 0);
        require(script.sent == bytes, "sends other bytes than the records'");
    }

    OwnedFilter<OpFilter_Connect> filter_;
    FlagModel model_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr double timeouts[] = {
        0.0, 0.005, 0.012, 0.025, 0.055, 1.0, -1.0, 2.0, std::numeric_limits<double>::quiet_NaN()};
    ByteReader in(data, size);
    Session session(in.one_of(timeouts));
    while (!in.empty()) session.call(in);
    return 0;
}

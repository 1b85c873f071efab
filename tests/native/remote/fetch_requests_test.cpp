#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "remote/remote_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

/// The slot of a virtual operation; the destructors are 1 and 2. In the binary interfaces of the
/// platforms, a pointer to a virtual member begins with its byte offset in the table. On x86-64 its
/// lowest bit is set, to tell that the member is virtual.
template <typename Operation>
long slot_of(Operation operation) {
    const auto words = std::bit_cast<std::array<long, 2>>(operation);
    return (words[0] & ~1L) / static_cast<long>(sizeof(void*)) + 1;
}

TEST(FetchRequests, AreTheLastSlot) {
    EXPECT_EQ(slot_of(&OpFilter::put_instructions), 3);
    EXPECT_EQ(slot_of(&OpFilter::connect), 4);
    EXPECT_EQ(slot_of(&OpFilter::disconnect), 5);
    EXPECT_EQ(slot_of(&OpFilter::get_status), 6);
    EXPECT_EQ(slot_of(&OpFilter::set_random), 20);
    EXPECT_EQ(slot_of(&OpFilter_Connect::handle_fetch_requests), 21);
}

/// A filter that records its waits and does not wait.
class NotingFilter : public OpFilter_Connect {
  public:
    void handle_fetch_requests(const QPUOp* ops, unsigned long num_ops) override {
        calls.emplace_back(ops, num_ops);
        char byte = 0;
        was_sent.push_back(::recv(service, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 1);
    }

    int service = -1;
    std::vector<std::pair<const QPUOp*, unsigned long>> calls;
    std::vector<bool> was_sent;
};

TEST_F(ConnectedFilter, RecordsAreSentBeforeTheVirtualWait) {
    NotingFilter noting;
    noting.service = service;
    std::swap(noting.sock, filter.sock);
    const std::vector<QPUOp> records{record(OP_X), record(OP_FETCH_REQUEST)};
    OpFilter& base = noting;
    base.put_instructions(records.data(), 2);
    EXPECT_EQ(received(), bytes_of(records));
    base.put_instructions(records.data(), 0);
    EXPECT_EQ(noting.calls, (std::vector<std::pair<const QPUOp*, unsigned long>>{
                                {records.data(), 2}, {records.data(), 0}}));
    EXPECT_EQ(noting.was_sent, (std::vector<bool>{true, false}));
    OpFilter::filter_registry.erase(noting.handle);
}

TEST_F(ConnectedFilter, RecordsWithoutRequestsReadNothing) {
    filter.timeout = 5.0;
    send(bytes_of({reply(2, 4, 0xF)}));
    put({record(OP_X), record(OP_FETCH_REPLY), record(OP_FETCH_REQUEST ^ 1UL << 63)});
    EXPECT_EQ(flags(2, 4), 0UL);
    EXPECT_EQ(received().size(), 3 * sizeof(QPUOp));
    EXPECT_EQ(fetch(), "") << "the reply was still there";
    EXPECT_EQ(flags(2, 4), 0xFUL);
}

TEST_F(ConnectedFilter, TheServiceMayBeGone) {
    ::close(std::exchange(service, -1));
    filter.timeout = 0.02;
    for (int i = 0; i < 3; ++i) {
        put({record(OP_X)});  // no signal may end the process
        EXPECT_EQ(fetch(), timed_out_line);
    }
    EXPECT_GE(filter.sock, 0);
}

TEST_F(ConnectedFilter, ACountAboveTheWordStoresItsBits) {
    for (const unsigned long count : {64UL, 65UL, 1UL << 32, ~0UL}) {
        const long first = 100 + static_cast<long>(count % 7) * 1000;
        send(bytes_of({reply(first, count, ~0UL)}));
        EXPECT_EQ(fetch(), "");
        EXPECT_EQ(flags(first - 1, 3), 0b110UL);
        EXPECT_EQ(flags(first, 64), ~0UL);
        EXPECT_EQ(flags(first + 63, 3), 1UL) << count;
    }
}

TEST_F(ConnectedFilter, AnyBytesAtAllAreSurvived) {
    std::mt19937_64 generator(11);
    for (int round = 0; round < 100; ++round) {
        std::string bytes(generator() % 600, '\0');
        for (char& byte : bytes) byte = static_cast<char>(generator());
        // Half of them begin like a reply, so that the filter reads their other words.
        const std::string opcode = bytes_of({record(OP_FETCH_REPLY)}).substr(0, 8);
        const bool is_reply = round % 2 == 0 && bytes.size() >= sizeof(QPUOp);
        if (is_reply) bytes.replace(0, opcode.size(), opcode);
        filter.timeout = is_reply ? 30.0 : 0.001;
        send(bytes);
        EXPECT_EQ(fetch(), is_reply ? "" : timed_out_line) << "round " << round;
        received();
    }
}

}  // namespace

#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "remote/remote_support.h"
#include "remote/wait_script.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

using Polls = std::vector<std::vector<ReadAnswer>>;

const std::string marker_bytes = bytes_of({record(OP_MARKER_10000000)});
const std::string reply_bytes = bytes_of({reply(2, 4, 0b1011)});

ReadAnswer bytes(const std::string& data) { return {data, 0}; }
ReadAnswer failure(int number) { return {"", number}; }
const ReadAnswer end_of_stream{};

class ScriptedWaits : public ConnectedFilter {
  protected:
    /// Waits for replies to `requests` requests from a scripted service.
    void fetch_from(const Polls& polls, std::size_t requests = 1) {
        const std::vector<QPUOp> records(requests, record(OP_FETCH_REQUEST));
        printed = printed_by([&] {
            script.emplace(polls);
            put(records);
            reads = script->reads_of_polls;
            descriptors = script->descriptors;
            pauses = script->pauses;
            script.reset();
        });
        EXPECT_EQ(pauses, std::vector<useconds_t>(pauses.size(), 10000));
    }

    std::optional<WaitScript> script;
    std::string printed;
    std::vector<std::size_t> reads;
    std::vector<int> descriptors;
    std::vector<useconds_t> pauses;
};

TEST_F(ScriptedWaits, AWaitThatHasEnoughDoesNotPause) {
    fetch_from({{bytes(reply_bytes)}});
    EXPECT_EQ(printed, "");
    EXPECT_EQ(pauses.size(), 0UL);
    EXPECT_EQ(flags(2, 4), 0b1011UL);
}

TEST_F(ScriptedWaits, PollsUntilTheTimeoutHasPassed) {
    filter.timeout = 0.045;
    fetch_from({});
    EXPECT_EQ(printed, timed_out_line);
    EXPECT_EQ(pauses.size(), 5UL) << "polls at 0, 10, 20, 30 and 40 milliseconds";
    EXPECT_EQ(descriptors, std::vector<int>(5, filter.sock));
}

TEST_F(ScriptedWaits, ATimeoutThatHasPassedReadsNothing) {
    for (const double timeout : {0.0, -1.0, -HUGE_VAL, std::nan("")}) {
        filter.timeout = timeout;
        fetch_from({{bytes(reply_bytes)}});
        EXPECT_EQ(printed, timed_out_line);
        EXPECT_TRUE(descriptors.empty());
        EXPECT_TRUE(pauses.empty());
    }
}

TEST_F(ScriptedWaits, DataBehindAWholeRecordRestartsTheTimeout) {
    filter.timeout = 0.045;
    fetch_from({{bytes(marker_bytes)}, {}, {}, {bytes("x")}});
    EXPECT_EQ(printed, timed_out_line);
    EXPECT_EQ(pauses.size(), 3UL + 5) << "the fourth poll began it anew";
}

TEST_F(ScriptedWaits, APartOfTheFirstRecordRestartsNothing) {
    filter.timeout = 0.045;
    fetch_from({{}, {}, {}, {bytes(marker_bytes.substr(1))}});
    EXPECT_EQ(printed, timed_out_line);
    EXPECT_EQ(pauses.size(), 5UL);
}

TEST_F(ScriptedWaits, AReplyAtTheHeadRestartsTheTimeoutAtEveryPoll) {
    filter.timeout = 0.3;
    fetch_from({{bytes(reply_bytes)}}, 60);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(pauses.size(), 59UL) << "sixty polls, one reply counted at each";
    EXPECT_EQ(flags(2, 4), 0b1011UL);
}

TEST_F(ScriptedWaits, AReplyThatComesLateRestartsTheTimeoutFromThenOn) {
    filter.timeout = 0.045;
    fetch_from({{}, {}, {}, {}, {bytes(reply_bytes)}}, 60);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(pauses.size(), 4UL + 59);
}

TEST_F(ScriptedWaits, ATimeoutShorterThanAPauseEndsBehindAReplyToo) {
    filter.timeout = 0.009;
    fetch_from({{bytes(reply_bytes)}}, 2);
    EXPECT_EQ(printed, timed_out_line);
    EXPECT_EQ(pauses.size(), 1UL);
    EXPECT_EQ(flags(2, 4), 0b1011UL);
}

TEST_F(ScriptedWaits, OldRecordsBehindAnotherHeadRestartNothing) {
    filter.timeout = 0.045;
    fetch_from({{bytes(marker_bytes + reply_bytes)}}, 100);
    EXPECT_EQ(printed, timed_out_line);
    EXPECT_EQ(pauses.size(), 5UL);
    EXPECT_EQ(flags(2, 4), 0UL);
}

TEST_F(ScriptedWaits, EveryWalkCountsAllWholeRecords) {
    fetch_from({{bytes(reply_bytes)}, {}, {bytes(marker_bytes)}, {bytes("x")}}, 6);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(pauses.size(), 3UL) << "1, 2, 4 and 6 counted";
}

TEST_F(ScriptedWaits, AReplyBehindAnotherRecordNeverCounts) {
    filter.timeout = 0.025;
    fetch_from({{bytes(marker_bytes + reply_bytes)}, {bytes(reply_bytes)}});
    EXPECT_EQ(printed, timed_out_line);
    EXPECT_EQ(flags(2, 4), 0UL);
    EXPECT_EQ(pauses.size(), 1UL + 3);
}

TEST_F(ScriptedWaits, AReadThatFillsItsRoomIsFollowedByAnother) {
    const std::string full = reply_bytes + std::string(4096 - 88, '\0');
    fetch_from({{bytes(full), bytes(std::string(4096, '\0')), bytes("x"), bytes("y")}});
    EXPECT_EQ(printed, "");
    EXPECT_EQ(reads, (std::vector<std::size_t>{3}));
}

TEST_F(ScriptedWaits, AShortReadEndsThePoll) {
    const std::string behind = bytes_of({record(OP_X)});
    fetch_from({{bytes(reply_bytes + std::string(4095 - 88, '\0')), bytes(behind)}});
    EXPECT_EQ(reads, (std::vector<std::size_t>{1}));
}

class Losses : public ScriptedWaits, public testing::WithParamInterface<int> {};

TEST_P(Losses, EndTheConnectionAndNotTheWait) {
    filter.timeout = 0.045;
    const int sock = filter.sock;
    fetch_from({{failure(EAGAIN)}, {failure(GetParam())}});
    EXPECT_EQ(printed, std::string(lost_line) + timed_out_line);
    EXPECT_FALSE(is_open(sock));
    expect_not_connected();
    EXPECT_EQ(pauses.size(), 5UL);
    EXPECT_EQ(std::vector<int>(descriptors.begin() + 2, descriptors.end()),
              (std::vector<int>{-1, -1, -1}))
        << "a number that anybody may have by then is read no more";
}

TEST_P(Losses, AreFollowedByTheErrorOfAFilterWithoutAConnection) {
    filter.timeout = 0.015;
    fetch_from({{failure(GetParam())}});
    EXPECT_THROW(put({record(OP_X)}), std::runtime_error);
}

TEST_P(Losses, LeaveTheCountGoingOn) {
    filter.timeout = 0.045;
    fetch_from({{bytes(reply_bytes)}, {failure(GetParam())}}, 60);
    EXPECT_EQ(printed, lost_line);
    EXPECT_EQ(pauses.size(), 59UL);
    EXPECT_EQ(flags(2, 4), 0b1011UL);
    expect_not_connected();
}

TEST_P(Losses, BehindAFullReadKeepItsBytes) {
    const std::string full = reply_bytes + std::string(4096 - 88, '\0');
    fetch_from({{bytes(full), failure(GetParam())}}, 46);
    EXPECT_EQ(printed, lost_line);
    EXPECT_EQ(pauses.size(), 0UL);
    EXPECT_EQ(flags(2, 4), 0b1011UL);
    expect_not_connected();
}

INSTANTIATE_TEST_SUITE_P(ByNumber, Losses, testing::Values(110, 17));

TEST_F(ScriptedWaits, OtherErrorsEndThePollOnly) {
    filter.timeout = 0.015;
    for (const int number :
         {EAGAIN, EINTR, ECONNRESET, EPIPE, EBADF, ENOTCONN, EIO, 109, 111, 16}) {
        fetch_from({{failure(number), bytes(reply_bytes)}, {failure(number)}});
        EXPECT_EQ(printed, timed_out_line) << number;
        EXPECT_EQ(reads[0], 1UL);
        EXPECT_TRUE(is_open(filter.sock));
        EXPECT_EQ(filter.peer_name, "service");
        EXPECT_EQ(filter.port, 7);
    }
}

// A read at the end of the stream does not change the error number of an earlier call.
TEST_F(ScriptedWaits, TheEndOfTheStreamIsNoLossWhateverFailedBefore) {
    filter.timeout = 0.025;
    for (const int stale : {ETIMEDOUT, EEXIST}) {
        errno = stale;
        fetch_from({{end_of_stream}, {end_of_stream}, {end_of_stream}});
        EXPECT_EQ(printed, timed_out_line);
        EXPECT_TRUE(is_open(filter.sock));
    }
}

}  // namespace

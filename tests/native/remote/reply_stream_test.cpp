#include "remote/reply_stream.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "remote/remote_support.h"

namespace {

using namespace Nimbrel;
using Nimbrel::Testing::bytes_of;
using Nimbrel::Testing::record;
using Nimbrel::Testing::reply;

void append(ReplyStream& stream, const std::string& bytes) {
    stream.append(bytes.data(), bytes.size());
}

TEST(ReplyStream, BeginsWithoutRecords) {
    const ReplyStream stream;
    EXPECT_EQ(stream.num_records(), 0UL);
}

TEST(ReplyStream, CountsWholeRecords) {
    ReplyStream stream;
    append(stream, std::string(87, 'a'));
    EXPECT_EQ(stream.num_records(), 0UL);
    append(stream, "b");
    EXPECT_EQ(stream.num_records(), 1UL);
    append(stream, std::string(88 + 87, 'c'));
    EXPECT_EQ(stream.num_records(), 2UL);
    append(stream, "");
    EXPECT_EQ(stream.num_records(), 2UL);
    append(stream, "d");
    EXPECT_EQ(stream.num_records(), 3UL);
}

TEST(ReplyStream, OnlyTheWholeOpcodeIsAReply) {
    for (unsigned bit = 0; bit < 64; ++bit) {
        ReplyStream stream;
        append(stream, bytes_of({record(OP_FETCH_REPLY ^ 1UL << bit), reply(2, 1, 1)}));
        EXPECT_FALSE(stream.begins_with_reply()) << bit;
    }
    ReplyStream stream;
    append(stream, bytes_of({record(OP_FETCH_REPLY), record(OP_X)}));
    EXPECT_TRUE(stream.begins_with_reply());
}

TEST(ReplyStream, KeepsTheFirstRecordHoweverItComes) {
    const std::string bytes = bytes_of({reply(-7, 64, 0x0123456789ABCDEF), reply(3, 1, 0)});
    for (std::size_t step = 1; step <= bytes.size(); ++step) {
        ReplyStream stream;
        for (std::size_t place = 0; place < bytes.size(); place += step) {
            append(stream, bytes.substr(place, step));
        }
        ASSERT_EQ(stream.num_records(), 2UL) << step;
        EXPECT_EQ(bytes_of({stream.first_record()}), bytes.substr(0, 88)) << step;
    }
}

TEST(ReplyStream, KeepsAnyBytesInAnyPieces) {
    std::mt19937 generator(7);
    for (int round = 0; round < 200; ++round) {
        ReplyStream stream;
        std::string all;
        while (all.size() < 400) {
            std::string piece(generator() % 120, '\0');
            for (char& byte : piece) byte = static_cast<char>(generator());
            append(stream, piece);
            all += piece;
            ASSERT_EQ(stream.num_records(), all.size() / 88) << "round " << round;
        }
        EXPECT_EQ(bytes_of({stream.first_record()}), all.substr(0, 88)) << "round " << round;
    }
}

}  // namespace

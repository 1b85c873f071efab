#include "remote/connect_filter.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "remote/remote_support.h"

namespace {

using namespace Nimbrel;
using Nimbrel::Testing::is_open;
using Nimbrel::Testing::printed_by;
using Nimbrel::Testing::record;

/// A TCP socket on loopback. The system accepts connections to one that listens.
class LoopbackPort {
  public:
    explicit LoopbackPort(bool listening) : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof(address);
        if (::bind(socket_, generic, size) != 0 || (listening && ::listen(socket_, 4) != 0) ||
            ::getsockname(socket_, generic, &size) != 0) {
            throw std::runtime_error("no socket on loopback");
        }
        number_ = ntohs(address.sin_port);
    }
    ~LoopbackPort() { ::close(socket_); }
    LoopbackPort(const LoopbackPort&) = delete;
    LoopbackPort& operator=(const LoopbackPort&) = delete;

    int number() const { return number_; }

    /// The service's end of a connection. The caller closes it.
    int accept() const {
        const int end = ::accept(socket_, nullptr, nullptr);
        const timeval limit{10, 0};  // in case the connection is not closed as it should be
        ::setsockopt(end, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        return end;
    }

  private:
    int socket_;
    int number_ = 0;
};

class ConnectFilter : public testing::Test {
  protected:
    ~ConnectFilter() override { OpFilter::filter_registry.erase(filter->handle); }

    /// Connects and returns the text of the result, which has the initial value `result`.
    std::string connect(const std::string& host, int port, double timeout = 2.0,
                        std::string result = "") {
        printed = printed_by([&] {
            testing::internal::CaptureStderr();
            filter->connect(host, port, timeout, result);
            errors = testing::internal::GetCapturedStderr();
        });
        return result;
    }

    std::string status() const {
        std::string text = "replaced";
        filter->get_status(text);
        return text;
    }

    void expect_not_connected() const {
        EXPECT_EQ(filter->sock, -1);
        EXPECT_EQ(filter->peer_name, "(not connected)");
        EXPECT_EQ(filter->port, -1);
        EXPECT_EQ(status(), R"({"connected":false})");
    }

    LoopbackPort service{true};
    LoopbackPort nobody{false};
    std::unique_ptr<OpFilter_Connect> filter = std::make_unique<OpFilter_Connect>();
    std::string printed;
    std::string errors;
};

TEST_F(ConnectFilter, BeginsWithoutAConnection) {
    EXPECT_EQ(filter->sock, -1);
    EXPECT_EQ(filter->peer_name, "(not connected");
    EXPECT_EQ(filter->peer_name.size(), 14UL);
    EXPECT_EQ(filter->spare_name, "");
    EXPECT_EQ(filter->port, -1);
    EXPECT_EQ(filter->timeout, 1800.0);
    EXPECT_EQ(status(), R"({"connected":false})");
}

TEST_F(ConnectFilter, IsMadeByItsTypeName) {
    OpFilter* const made = OpFilter::AllocateNew(nullptr, "StreamConnect", 0, 0);
    const auto* const connect = dynamic_cast<OpFilter_Connect*>(made);
    ASSERT_NE(connect, nullptr);
    EXPECT_EQ(connect->peer_name, "(not connected");
    OpFilter::delete_filter(made->handle);
}

TEST_F(ConnectFilter, NeedsAConnectionForRecords) {
    const QPUOp op = record(OP_X);
    for (const unsigned long num_ops : {0UL, 1UL}) {
        try {
            filter->put_instructions(&op, num_ops);
            ADD_FAILURE() << num_ops;
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "Error: instructions pushed while there is no connection.");
        }
    }
}

TEST_F(ConnectFilter, AConnectionNamesItsPeer) {
    EXPECT_EQ(connect("127.0.0.1", service.number(), 2.5, "kept"), "kept");
    EXPECT_EQ(printed, "Connected ok.\n");
    EXPECT_EQ(errors, "");
    EXPECT_GE(filter->sock, 0);
    EXPECT_EQ(filter->peer_name, "127.0.0.1");
    EXPECT_EQ(filter->spare_name, "");
    EXPECT_EQ(filter->port, service.number());
    EXPECT_EQ(filter->timeout, 2.5);
    EXPECT_EQ(status(), R"({"connected":true})");
}

TEST_F(ConnectFilter, ThePeersNameIsTheHostAsGiven) {
    EXPECT_EQ(connect("127.1", service.number()), "");
    EXPECT_EQ(filter->peer_name, "127.1");
}

TEST_F(ConnectFilter, TheSocketDoesNotBlock) {
    connect("127.0.0.1", service.number());
    EXPECT_NE(::fcntl(filter->sock, F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(ConnectFilter, DisconnectingClosesTheSocket) {
    connect("127.0.0.1", service.number());
    const int sock = filter->sock;
    std::string result;
    filter->disconnect(result);
    EXPECT_EQ(result, "");
    EXPECT_FALSE(is_open(sock));
    expect_not_connected();
    EXPECT_EQ(filter->peer_name.size(), 15UL);
}

TEST_F(ConnectFilter, DisconnectingWithoutAConnectionChangesNothing) {
    std::string result = "kept";
    filter->disconnect(result);
    EXPECT_EQ(result, "kept");
    EXPECT_EQ(filter->peer_name, "(not connected")
        << "the first text stays until a connection ends";
    EXPECT_EQ(filter->port, -1);
}

TEST_F(ConnectFilter, FailuresAppendToTheResult) {
    const std::string number = std::to_string(nobody.number());
    EXPECT_EQ(connect("127.0.0.1", nobody.number(), 2.0, "before. "),
              "before. Error: failed to connect to host 127.0.0.1:" + number);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(errors, "ERROR connecting\n");
    expect_not_connected();
    EXPECT_EQ(connect("256.256.256.256", -3),
              "Error: failed to connect to host 256.256.256.256:-3");
    EXPECT_EQ(errors, "ERROR, no such host\n");
    expect_not_connected();
}

TEST_F(ConnectFilter, TheTimeoutIsStoredBeforeAnythingCanFail) {
    connect("256.256.256.256", 1, 3.25);
    EXPECT_EQ(filter->timeout, 3.25);
    connect("127.0.0.1", nobody.number(), 4.5);
    EXPECT_EQ(filter->timeout, 4.5);
}

TEST_F(ConnectFilter, ConnectingAgainClosesTheOldSocket) {
    connect("127.0.0.1", service.number());
    const int old_end = service.accept();
    ASSERT_EQ(connect("127.0.0.1", service.number()), "");
    char byte = 0;
    EXPECT_EQ(::recv(old_end, &byte, 1, 0), 0) << "the end of the stream";
    ::close(old_end);
}

TEST_F(ConnectFilter, AFailureClosesTheOldSocket) {
    connect("127.0.0.1", service.number());
    const int old_end = service.accept();
    ASSERT_NE(connect("127.0.0.1", nobody.number()), "");
    char byte = 0;
    EXPECT_EQ(::recv(old_end, &byte, 1, 0), 0) << "the end of the stream";
    ::close(old_end);
    expect_not_connected();
}

TEST_F(ConnectFilter, DestructionClosesTheSocket) {
    OpFilter* const made = OpFilter::AllocateNew(nullptr, "StreamConnect", 0, 0);
    std::string result;
    printed_by([&] { made->connect("127.0.0.1", service.number(), 1.0, result); });
    const int sock = dynamic_cast<OpFilter_Connect*>(made)->sock;
    ASSERT_TRUE(is_open(sock));
    OpFilter::delete_filter(made->handle);
    EXPECT_FALSE(is_open(sock));
}

}  // namespace

/// Records of the socket protocol, and a filter that is connected to a socket of the test.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "core_register/core_register.h"
#include "filter/opcodes.h"
#include "record.h"
#include "remote/connect_filter.h"

namespace Nimbrel::Testing {

inline constexpr const char* timed_out_line =
    "Error: Timeout waiting to fetch measurement results. Measurement results are not valid.\n";
inline constexpr const char* lost_line = " ...connection lost.\n";

/// All bits of the value are valid.
inline QPUOp reply(long first, unsigned long count, unsigned long value) {
    QPUOp op = record(OP_FETCH_REPLY);
    op.target_mask = static_cast<unsigned long>(first);
    op.cond_mask = count;
    op.cond_flag = -1;
    op.read_flag = static_cast<long>(value);
    return op;
}

inline std::string bytes_of(const std::vector<QPUOp>& records) {
    std::string bytes(records.size() * sizeof(QPUOp), '\0');
    std::memcpy(bytes.data(), records.data(), bytes.size());
    return bytes;
}

inline bool is_open(int descriptor) { return ::fcntl(descriptor, F_GETFD) != -1; }

inline std::string printed_by(const std::function<void()>& action) {
    testing::internal::CaptureStdout();
    try {
        action();
    } catch (...) {
        testing::internal::GetCapturedStdout();
        throw;
    }
    return testing::internal::GetCapturedStdout();
}

/// A filter with one end of a socket pair. The test has the other end and acts as the service.
class ConnectedFilter : public testing::Test {
  protected:
    ConnectedFilter() {
        std::array<int, 2> ends{};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()) != 0) {
            throw std::runtime_error("no sockets left");
        }
        filter.sock = ends[0];
        service = ends[1];
        filter.peer_name = "service";
        filter.port = 7;
    }

    ~ConnectedFilter() override {
        OpFilter::filter_registry.erase(filter.handle);
        if (service >= 0) ::close(service);
    }

    void send(const std::string& bytes) {
        ASSERT_EQ(::send(service, bytes.data(), bytes.size(), 0),
                  static_cast<ssize_t>(bytes.size()));
    }

    /// The bytes that the service has received.
    std::string received() {
        std::string bytes(1 << 16, '\0');
        const ssize_t size = ::recv(service, bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        return bytes;
    }

    void put(const std::vector<QPUOp>& records) {
        filter.put_instructions(records.data(), records.size());
    }

    /// Waits for replies to `requests` requests and returns the printed text.
    std::string fetch(std::size_t requests = 1) {
        const std::vector<QPUOp> records(requests, record(OP_FETCH_REQUEST));
        return printed_by([&] { put(records); });
    }

    unsigned long flags(long first, unsigned long count) {
        return filter.qpu->fetch_read_result(first, count);
    }

    void expect_not_connected() {
        EXPECT_EQ(filter.sock, -1);
        EXPECT_EQ(filter.peer_name, "(not connected)");
        EXPECT_EQ(filter.port, -1);
        std::string status;
        filter.get_status(status);
        EXPECT_EQ(status, R"({"connected":false})");
    }

    OpFilter_Connect filter;
    int service = -1;
};

}  // namespace Nimbrel::Testing

#include "remote/connect_filter.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "filter/opcodes.h"
#include "remote/connection_status.h"
#include "remote/reply_stream.h"

namespace Nimbrel {
namespace {

constexpr unsigned poll_interval_us = 10000;

/// Seconds since the first use.
double seconds_now() {
    using clock = std::chrono::system_clock;
    static const clock::time_point start = clock::now();
    return std::chrono::duration<double>(clock::now() - start).count();
}

/// The first IPv4 address of a host by name or number, with a port in network order.
bool find_service(const std::string& host, int port, sockaddr_in& address) {
    const hostent* const entry = ::gethostbyname(host.c_str());
    if (entry == nullptr || entry->h_addrtype != AF_INET || entry->h_addr_list[0] == nullptr) {
        return false;
    }
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    std::memcpy(&address.sin_addr, entry->h_addr_list[0], sizeof(address.sin_addr));
    return true;
}

bool is_port(int port) { return port >= 0 && port <= 0xFFFF; }

unsigned long count_fetch_requests(const QPUOp* ops, unsigned long num_ops) {
    return static_cast<unsigned long>(std::count_if(
        ops, ops + num_ops, [](const QPUOp& op) { return op.opcode == OP_FETCH_REQUEST; }));
}

}  // namespace

OpFilter_Connect::~OpFilter_Connect() { close_connection(); }

void OpFilter_Connect::close_connection() {
    if (sock < 0) return;
    ::close(sock);
    sock = -1;
    peer_name = "(not connected)";
    port = -1;
}

void OpFilter_Connect::connect(const std::string& host, int service_port, double wait_limit,
                               std::string& result) {
    timeout = wait_limit;
    // A copy: `host` may refer to `peer_name`, which closing the connection changes.
    std::string wanted = host;
    close_connection();
    if (open_connection(wanted, service_port)) {
        ::fcntl(sock, F_SETFL, O_NONBLOCK);
        std::puts("Connected ok.");
        // A move needs no memory, so an open connection always has its name.
        peer_name = std::move(wanted);
        port = service_port;
        return;
    }
    close_connection();
    result += "Error: failed to connect to host " + wanted + ":" + std::to_string(service_port);
}

bool OpFilter_Connect::open_connection(const std::string& host, int service_port) {
    sock = ::socket(AF_INET, SOCK_STREAM, 0);
    if (sock < 0) {
        std::fputs("ERROR opening socket\n", stderr);
        return false;
    }
    sockaddr_in address{};
    if (!find_service(host, service_port, address)) {
        std::fputs("ERROR, no such host\n", stderr);
        return false;
    }
    // A number outside the range of ports would be truncated to another port.
    // A connection that a signal interrupts counts as failed, so that Ctrl-C ends a long wait.
    if (!is_port(service_port) ||
        ::connect(sock, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0) {
        std::fputs("ERROR connecting\n", stderr);
        return false;
    }
    return true;
}

void OpFilter_Connect::disconnect(std::string& /*result*/) { close_connection(); }

void OpFilter_Connect::get_status(std::string& result) { result = connection_status(sock >= 0); }

// The result of the write is ignored: only the service can detect that records are missing.
// MSG_NOSIGNAL, because a write to a closed connection must not end the process.
void OpFilter_Connect::put_instructions(const QPUOp* ops, unsigned long num_ops) {
    if (sock < 0) {
        throw std::runtime_error("Error: instructions pushed while there is no connection.");
    }
    std::ignore = ::send(sock, ops, num_ops * sizeof(QPUOp), MSG_NOSIGNAL);
    handle_fetch_requests(ops, num_ops);
}

// Reads all available bytes and returns their number. A read that fails with one of the two error
// numbers below closes the connection. Other failures, such as no data, only end the poll.
unsigned long OpFilter_Connect::receive(ReplyStream& stream) {
    constexpr std::size_t chunk = 4096;
    // Limits the poll if the service sends faster than this function reads.
    constexpr std::size_t most_per_poll = 1UL << 28;
    std::array<char, chunk> bytes;
    std::size_t received = 0;
    ssize_t size = 0;
    do {
        errno = 0;  // the end of a stream does not set it
        size = ::read(sock, bytes.data(), bytes.size());
        if (size > 0) {
            stream.append(bytes.data(), static_cast<std::size_t>(size));
            received += static_cast<std::size_t>(size);
        }
    } while (size == static_cast<ssize_t>(chunk) && received < most_per_poll);
    static_assert(ETIMEDOUT == 110 && EEXIST == 17, "front ends know these numbers");
    if (size <= 0 && (errno == ETIMEDOUT || errno == EEXIST)) {
        std::puts(" ...connection lost.");
        close_connection();
    }
    return received;
}

// Every poll visits all records since the start of the wait, and each visit examines the first
// record. So a reply at the head counts once for each complete record, and again in the next poll.
// A reply behind another record has no effect.
void OpFilter_Connect::handle_fetch_requests(const QPUOp* ops, unsigned long num_ops) {
    const unsigned long requests = count_fetch_requests(ops, num_ops);
    if (requests == 0) return;
    ReplyStream stream;
    unsigned long replies = 0;
    double last_progress = seconds_now();
    // Written so that a NaN as timeout ends the wait.
    while (replies < requests && seconds_now() - last_progress < timeout) {
        const bool has_new_bytes = receive(stream) != 0;
        if (stream.num_records() != 0) {
            const bool has_reply = stream.begins_with_reply();
            if (has_reply) {
                store_reply(stream.first_record());
                replies += stream.num_records();
            }
            // Old records without a reply at the head must not restart the timeout, or the wait
            // would never end.
            if (has_reply || has_new_bytes) last_progress = seconds_now();
        }
        if (replies < requests) ::usleep(poll_interval_us);
    }
    if (replies < requests) {
        std::puts(
            "Error: Timeout waiting to fetch measurement results. Measurement results are not "
            "valid.");
    }
}

void OpFilter_Connect::store_reply(const QPUOp& reply) {
    const auto first = reply.target_mask;
    const auto valid = static_cast<unsigned long>(reply.cond_flag);
    const auto values = static_cast<unsigned long>(reply.read_flag);
    const unsigned long count = std::min(reply.cond_mask, 64UL);  // bits of the word
    qpu_base().prepare_read_flags(static_cast<long>(first), count);
    for (unsigned long i = 0; i < count; ++i) {
        if ((valid >> i & 1) == 0) continue;
        qpu_base().set_read_flag(static_cast<long>(first + i), static_cast<long>(values >> i & 1));
    }
}

}  // namespace Nimbrel

// Memory that runs out in the filters that simulate nothing.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>

#include "faults/scenario.h"
#include "remote/connect_filter.h"
#include "remote/export_filter.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

std::string status_of(OpFilter& filter) {
    std::string status;
    filter.get_status(status);
    const auto* client = dynamic_cast<OpFilter_Connect*>(&filter);
    if (client != nullptr && client->sock >= 0) status += client->peer_name;
    return status + common_state(filter);
}

TEST(ExportFaults, MemoryThatRunsOut) {
    const Scenario scenario{
        .make = []() -> OpFilter* {
            std::FILE* file = std::tmpfile();
            try {
                auto* filter = new OpFilter_cuQuantum_Export();
                filter->out = file;
                return filter;
            } catch (...) {
                std::fclose(file);
                throw;
            }
        },
        .seen = status_of,
        .other_reset = {},
        .steps = {record_step("x", OP_X, {.target_mask = 1}),
                  {"status",
                   [](OpFilter& filter) {
                       std::string status;
                       filter.get_status(status);
                   }}},
    };
    expect_to_survive_every_failed_allocation(scenario);
}

/// A listening socket of this process that answers nothing.
class Listener {
  public:
    Listener() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        EXPECT_EQ(::bind(socket_, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(::listen(socket_, 1000), 0);
        EXPECT_EQ(::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size), 0);
        port_ = ntohs(address.sin_port);
    }
    ~Listener() { ::close(socket_); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    int port() const { return port_; }

  private:
    int socket_ = ::socket(AF_INET, SOCK_STREAM, 0);
    int port_ = 0;
};

int lowest_free_descriptor() {
    const int descriptor = ::dup(STDIN_FILENO);
    ::close(descriptor);
    return descriptor;
}

TEST(ConnectFaults, MemoryThatRunsOut) {
    const Listener listener;
    const int before = lowest_free_descriptor();
    const Scenario scenario{
        .make = [] { return OpFilter::AllocateNew(nullptr, "StreamConnect", 0, 0); },
        .seen = status_of,
        .other_reset = {},
        .steps = {{"failing connect",
                   [](OpFilter& filter) {
                       std::string result;
                       filter.connect("256.256.256.256 is no host", 1, 0.0, result);
                   }},
                  {"connect",
                   [&listener](OpFilter& filter) {
                       std::string result;
                       // A name that no string holds without an allocation.
                       filter.connect("0177.0000.0000.0001", listener.port(), 0.0, result);
                       EXPECT_EQ(result, "");
                   }},
                  record_step("x", OP_X, {.target_mask = 1}),
                  record_step("fetch without a wait", OP_FETCH_REQUEST),
                  {"status", [](OpFilter& filter) { status_of(filter); }}},
    };
    expect_to_survive_every_failed_allocation(scenario);
    EXPECT_EQ(lowest_free_descriptor(), before);
}

}  // namespace

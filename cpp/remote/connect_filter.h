/// "StreamConnect": a socket client that hands the records to a remote service.
#pragma once

#include <string>

#include "filter/op_filter.h"

namespace Nimbrel {

class ReplyStream;

/// Sends every array as it stands over one TCP connection and waits for the replies to its fetch
/// requests, whose bits go into the read flags here.
///
/// Nothing is negotiated: both directions carry bare records. An array goes out in one write whose
/// result is not looked at, so what the socket's buffer does not take is lost. A connection that
/// breaks is noticed only when a wait meets one of two error numbers, and a wait that ends without
/// its replies prints a line and leaves the flags as they were.
///
/// Runs on the caller's thread, the waits too.
class OpFilter_Connect : public OpFilter {
  public:
    ~OpFilter_Connect() override;

    /// Throws while there is no connection.
    void put_instructions(const QPUOp* ops, unsigned long num_ops) override;

    /// Connects to an IPv4 service; an open connection is closed first. `wait_limit` is in seconds.
    /// A failure is appended to `result`, which success leaves as it is.
    void connect(const std::string& host, int service_port, double wait_limit,
                 std::string& result) override;
    void disconnect(std::string& result) override;
    void get_status(std::string& result) override;

    /// Waits for a reply to each fetch request among the records. The wait ends `timeout` seconds
    /// after the last poll that had a whole record to look at and either received bytes or found a
    /// reply at the head of the stream.
    virtual void handle_fetch_requests(const QPUOp* ops, unsigned long num_ops);

    int sock = -1;                             ///< negative while not connected
    std::string peer_name = "(not connected";  ///< this first text has no closing parenthesis
    std::string spare_name;                    ///< part of the layout, always empty
    int port = -1;
    double timeout = 1800.0;  ///< seconds

  private:
    bool open_connection(const std::string& host, int service_port);
    void close_connection();
    unsigned long receive(ReplyStream& stream);
    void store_reply(const QPUOp& reply);
};

}  // namespace Nimbrel

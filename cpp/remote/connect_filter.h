/// "StreamConnect": a socket client that sends the records to a remote service.
///
/// The factory creates it. All operations, the waits too, run on the caller's thread.
#pragma once

#include <string>

#include "filter/op_filter.h"

namespace Nimbrel {

class ReplyStream;

/// Sends every array unchanged over one TCP connection, waits for the replies to its fetch requests
/// and stores their bits in the read flags of this filter.
///
/// Both directions carry records and nothing else. An array is sent in one write and its result is
/// ignored, so records that do not fit into the socket's buffer are lost. A broken connection is
/// detected only during a wait, by one of two error numbers. A wait that ends without all replies
/// prints a line and does not change the flags.
class OpFilter_Connect : public OpFilter {
  public:
    ~OpFilter_Connect() override;

    /// Throws while there is no connection.
    void put_instructions(const QPUOp* ops, unsigned long num_ops) override;

    /// Closes an open connection and connects to an IPv4 service. `wait_limit` is in seconds.
    /// Appends the text of a failure to `result`; success does not change it.
    void connect(const std::string& host, int service_port, double wait_limit,
                 std::string& result) override;
    void disconnect(std::string& result) override;
    void get_status(std::string& result) override;

    /// Waits for a reply to each fetch request among the records. The wait ends `timeout` seconds
    /// after the last poll that had a complete record and either received bytes or found a reply at
    /// the head of the stream.
    virtual void handle_fetch_requests(const QPUOp* ops, unsigned long num_ops);

    int sock = -1;                             ///< negative while not connected
    std::string peer_name = "(not connected";  ///< later texts have the closing parenthesis
    std::string spare_name;                    ///< always empty
    int port = -1;
    double timeout = 1800.0;  ///< seconds

  private:
    bool open_connection(const std::string& host, int service_port);
    void close_connection();
    unsigned long receive(ReplyStream& stream);
    void store_reply(const QPUOp& reply);
};

}  // namespace Nimbrel

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "bench/load/Poller.h"

namespace watchload
{

/// Where the requests go.
struct Place
{
    std::string host = "127.0.0.1";  ///< an address of loopback
    int port = 8080;
};

/// A connection to an HTTP server of this machine: one request after the other, and their replies as they come.
/// Threads: one.
class HttpClient : public rtspload::PollTarget
{
public:
    /// \throws std::runtime_error when it cannot be connected
    HttpClient(const Place& place, rtspload::Poller& poller);
    ~HttpClient() override;
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    void get(const std::string& target, const std::string& fields = "");

    void onReadable() override;

protected:
    /// A reply has come. \param body  empty where the reply switches to another protocol
    virtual void onReply(int status, std::string_view body) = 0;
    /// Bytes have come after that.
    virtual void onBytes(std::string_view /*bytes*/) {}
    /// The server ended the connection.
    virtual void onEnd() = 0;

private:
    void readReplies();

    const Place place_;
    int socket_;
    std::string received_;
    bool switched_ = false;
};

}  // namespace watchload

#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <string>

#include "refhost/base/Descriptor.h"
#include "tests/refhost/net/tls/TlsPeer.h"
#include "tests/refhost/rtsp/connection/TestClient.h"

namespace refhost
{
namespace test
{

/// A blocking connection to a port of the loopback address.
inline Descriptor connectTo(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval patience{10, 0};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    EXPECT_EQ(0, ::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address));
    return socket;
}

/// An RTSP client over TLS.
class TlsClient : public TestClient
{
public:
    explicit TlsClient(int port, const TlsPeer::Options& options = {})
        : socket_(connectTo(port)), peer_(socket_.get(), options)
    {
        connected_ = peer_.connect();
    }

    bool connected() const
    {
        return connected_;
    }
    TlsPeer& peer()
    {
        return peer_;
    }

    bool trySend(const std::string& bytes) override
    {
        peer_.write(bytes);
        return true;
    }

protected:
    std::string wait(int milliseconds) override
    {
        pollfd waited{socket_.get(), POLLIN, 0};
        if (BIO_pending(SSL_get_rbio(peer_.ssl())) == 0 && ::poll(&waited, 1, milliseconds) != 1)
        {
            return {};
        }
        std::string bytes = peer_.read();
        end_ = peer_.ended() || peer_.broken();
        return bytes;
    }

private:
    Descriptor socket_;
    TlsPeer peer_;
    bool connected_ = false;
};

}  // namespace test
}  // namespace refhost

#pragma once

#include "refhost/net/tls/TlsStream.h"
#include "tests/refhost/net/LoopbackPair.h"
#include "tests/refhost/net/StreamUnderTest.h"
#include "tests/refhost/net/tls/TlsPeer.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace test
{

/// A server's TLS stream whose client has done the handshake; detached again.
class TlsUnderTest : public StreamUnderTest
{
public:
    explicit TlsUnderTest(const TlsPeer::Options& options = TlsPeer::Options())
        : peer_(sockets_.far.get(), options)
    {
        stream = std::make_shared<TlsStream>(std::move(sockets_.near), sockets_.peer, *context_);
        EventLoop loop("handshake");
        Signal established;
        stream->watchSend(true);
        stream->attach(loop,
                       [&](std::uint32_t)
                       {
                           stream->watchSend(false);
                           established.set();
                       });
        EXPECT_TRUE(peer_.connect());
        EXPECT_TRUE(established.wait());
        runOn(loop, [this] { stream->detach(); });
    }

    void write(const std::string& bytes) override
    {
        peer_.write(bytes);
    }

    std::string read() override
    {
        return peer_.read();
    }

    void endWriting() override
    {
        peer_.endWriting();
    }

    bool sawEnd() override
    {
        while (!peer_.read().empty())
        {
        }
        return peer_.ended();
    }

    TlsPeer& peer()
    {
        return peer_;
    }

private:
    LoopbackPair sockets_;
    const std::unique_ptr<TlsContext> context_ = makeTlsServer();
    TlsPeer peer_;
};

}  // namespace test
}  // namespace refhost

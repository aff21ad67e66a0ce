#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "refhost/rtsp/connection/ConnectionLoop.h"
#include "tests/refhost/net/MemoryStream.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"

namespace refhost
{
namespace test
{

/// The client at the other end of a stream in memory, or of two.
class MemoryClient : public TestClient
{
public:
    MemoryClient(std::shared_ptr<MemoryStream> fromServer, std::shared_ptr<MemoryStream> toServer)
        : fromServer_(std::move(fromServer)), toServer_(std::move(toServer))
    {
    }

    bool trySend(const std::string& bytes) override
    {
        toServer_->write(bytes);
        return !toServer_->closed();
    }

protected:
    std::string wait(int milliseconds) override
    {
        std::string bytes = fromServer_->read(milliseconds);
        end_ = bytes.empty() && fromServer_->ended();
        return bytes;
    }

private:
    const std::shared_ptr<MemoryStream> fromServer_;
    const std::shared_ptr<MemoryStream> toServer_;
};

/// Two loops without a server, and a client over a stream of the test's.
class StreamFixture : public RtspServerFixture
{
protected:
    static constexpr int timeoutMs = 60000;  // of sessions
    static constexpr std::chrono::milliseconds sweepInterval{5};

    ~StreamFixture() override
    {
        loop_->closeAll();
        services_.sessions.endAll();
        client_.reset();
        EXPECT_TRUE(stream_.expired()) << "a closed connection's stream is still held";
    }

    /// Connects a client over a stream that transfers at most that many bytes at once.
    void connectMemory(std::size_t bytesAtOnce)
    {
        const auto memory = std::make_shared<MemoryStream>(bytesAtOnce);
        carrier_ = memory;
        connectOver(memory, std::make_unique<MemoryClient>(memory, memory));
    }

    void connectOver(std::shared_ptr<ByteStream> stream, std::unique_ptr<TestClient> client)
    {
        stream_ = stream;
        client_ = std::move(client);
        const SocketAddress::Key address = stream->peer().key();
        loop_->adopt(std::move(stream), slots_.take(address, services_.now()));
    }

    static std::string url(const std::string& path = "orv/live/1/0")
    {
        return "rtsp://127.0.0.1/" + path;
    }

    RtspServices services_{withTimeout(config), routes, time};
    ConnectionSlots slots_{8, 8};
    AddressLimiter refused_{8, 8};
    std::unique_ptr<ConnectionLoop> other_ =
        std::make_unique<ConnectionLoop>("other", services_, refused_, sweepInterval);
    std::unique_ptr<ConnectionLoop> loop_ =
        std::make_unique<ConnectionLoop>("loop", services_, refused_, sweepInterval);
    std::weak_ptr<ByteStream> stream_;
    std::weak_ptr<MemoryStream> carrier_;  // carries the client's bytes
    std::unique_ptr<TestClient> client_;

private:
    static ServerConfig withTimeout(ServerConfig config)
    {
        config.limits.sessionTimeout = timeoutMs / 1000;
        return config;
    }
};

}  // namespace test
}  // namespace refhost

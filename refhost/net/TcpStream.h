#pragma once
// Tested by tests/refhost/net/ByteStreamContract_test.cpp.

#include "refhost/base/Descriptor.h"
#include "refhost/base/SmallMutex.h"
#include "refhost/net/ByteStream.h"

namespace refhost
{

/// A plain TCP connection: each operation is one system call on its socket, without a copy.
class TcpStream final : public ByteStream
{
public:
    /// \param socket  connected, non-blocking
    TcpStream(Descriptor socket, const SocketAddress& peer);
    ~TcpStream() override;

    void attach(EventLoop& loop, Handler handler) override;
    void detach() override;
    void watchReceive(bool on) override;
    void watchSend(bool on) override;
    Result receive(char* bytes, std::size_t size) override;
    Result send(const std::string_view* parts, std::size_t count, bool more) override;
    void endSending() override;
    void close() override;
    const SocketAddress& peer() const override;
    const SocketAddress& local() const override;
    void setSendBuffer(std::size_t bytes) override;
    std::optional<std::chrono::milliseconds> silence() const override;

    /// The socket, to set its options; negative once closed.
    int descriptor() const;

private:
    void watch(std::uint32_t event, bool on);

    Descriptor socket_;
    const SocketAddress peer_;
    mutable std::optional<SocketAddress> local_;  // read when first needed
    SmallMutex mutex_;
    EventLoop* loop_ OV_GUARDED_BY(mutex_) = nullptr;
    std::uint32_t watched_ OV_GUARDED_BY(mutex_) = receivable;
};

}  // namespace refhost

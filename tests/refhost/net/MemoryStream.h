#pragma once

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "refhost/net/ByteStream.h"

namespace refhost
{
namespace test
{

/// A stream in memory whose peer is the test, with a pace that networks rarely have.
///
/// After each report of readiness one receive() and one send() transfer up to `bytesAtOnce` bytes; otherwise
/// they are blocked. Every other report of `receivable` is spurious: receive() is blocked. Created by
/// std::make_shared.
class MemoryStream final : public ByteStream, public std::enable_shared_from_this<MemoryStream>
{
public:
    explicit MemoryStream(std::size_t bytesAtOnce = 1);
    ~MemoryStream() override;

    // The peer's side. Threads: any.
    void write(std::string_view bytes);
    void endWriting();
    void fail();
    /// While stalled, the peer accepts nothing.
    void stall(bool on);
    /// Bytes that arrived since the last call. Waits at most `milliseconds` for the first one.
    std::string read(int milliseconds);
    /// Whether everything written was received.
    bool allReceived() const;
    /// The other side sends no more.
    bool ended() const;
    bool closed() const;

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

private:
    std::uint32_t ready() const;
    void schedule();
    void report();

    const std::size_t bytesAtOnce_;
    const SocketAddress address_;
    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    EventLoop* loop_ = nullptr;
    std::shared_ptr<Handler> handler_;
    bool scheduled_ = false;
    std::uint32_t watched_ = receivable;
    std::string toServer_;
    std::string toPeer_;
    bool peerEnded_ = false;
    bool failed_ = false;
    bool stalled_ = false;
    bool ended_ = false;
    bool closed_ = false;
    bool inVain_ = false;
    std::size_t mayReceive_ = 0;
    std::size_t maySend_ = 0;
};

}  // namespace test
}  // namespace refhost

#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "tests/refhost/net/ForwardingStream.h"

namespace refhost
{
namespace test
{

/// The difficulties of TLS without its cryptography: a handshake precedes the first byte, so that sending waits
/// for input; bytes are transferred in records, so that decoded ones may be pending when there is no input; and
/// accepted bytes are committed to a record and sent whether or not `sendable` is watched.
///
/// The peer starts with `hello` and gets `reply`. A record is its length in one byte and its bytes, altered.
/// Created by std::make_shared.
class SealedStream final : public ForwardingStream, public std::enable_shared_from_this<SealedStream>
{
public:
    static constexpr std::string_view hello = "hello";
    static constexpr std::string_view reply = "hello yourself";
    static constexpr std::size_t maxRecord = 16;

    explicit SealedStream(std::shared_ptr<ByteStream> inner);

    /// `bytes` as records.
    static std::string seal(std::string_view bytes);
    /// Removes and decodes the complete records at the start of `records`.
    static std::string unseal(std::string& records);

    void attach(EventLoop& loop, Handler handler) override;
    void detach() override;
    void watchReceive(bool on) override;
    void watchSend(bool on) override;
    Result receive(char* bytes, std::size_t size) override;
    Result send(const std::string_view* parts, std::size_t count, bool more) override;
    void endSending() override;
    void close() override;

private:
    void onInner(std::uint32_t ready);
    std::uint32_t ready() const;
    void reportHeld();
    void onHeld();
    void readInner();
    void flush();
    void update();

    std::mutex mutex_;
    EventLoop* loop_ = nullptr;
    std::shared_ptr<Handler> handler_;
    bool reporting_ = false;
    bool watchesReceive_ = true;
    bool watchesSend_ = false;
    bool established_ = false;
    Status input_ = Status::blocked;  // ended or failed, when it is
    bool failed_ = false;
    bool ending_ = false;
    std::string records_;   // received, not complete yet
    std::string decoded_;   // not received by the user yet
    std::string outgoing_;  // accepted, not sent yet
};

}  // namespace test
}  // namespace refhost

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

/// What is hard about TLS, without its cryptography: a handshake comes before the first byte, so that sending
/// waits for input; bytes travel in records, so that some are held decoded when nothing is left to read; and
/// what was taken is committed to its record, and sent whether or not anybody watches for it.
///
/// The peer starts with `hello` and gets `reply`. A record is its length in one byte and its bytes, altered.
/// Made by std::make_shared.
class SealedStream final : public ForwardingStream, public std::enable_shared_from_this<SealedStream>
{
public:
    static constexpr std::string_view hello = "hello";
    static constexpr std::string_view reply = "hello yourself";
    static constexpr std::size_t maxRecord = 16;

    explicit SealedStream(std::shared_ptr<ByteStream> inner);

    /// `bytes` as records.
    static std::string seal(std::string_view bytes);
    /// Takes the whole records at the beginning of `records`.
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
    std::string records_;   // received, not whole yet
    std::string decoded_;   // not received by the user yet
    std::string outgoing_;  // taken, not sent yet
};

}  // namespace test
}  // namespace refhost

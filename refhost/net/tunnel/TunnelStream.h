#pragma once
// Tested by tests/refhost/net/tunnel/TunnelStream_test.cpp.

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "refhost/net/FilterStream.h"
#include "refhost/net/tunnel/PostReader.h"

namespace refhost
{

/// RTSP through HTTP: one stream over two connections of a client. The server's bytes are the endless response
/// to a GET; the client's are base64 in the body of a POST.
///
/// The GET's connection is the stream's: the stream ends with it, and has its addresses. POST connections come
/// and go. At most one is read; the next ones wait until everything that the first has sent is read, and then
/// replace it, so a client may use one for each request.
///
/// Memory: a few KiB of decoded bytes; `maxWaiting` POST connections that wait, with what came with their
/// requests' heads.
///
/// Threads: as ByteStream; addPost() any.
class TunnelStream final : public FilterStream
{
public:
    static constexpr std::size_t maxWaiting = 4;
    /// Bytes of responses that a POST connection may owe to read; then it is dropped.
    static constexpr std::size_t maxUnanswered = 1024;

    /// A POST connection.
    struct Post
    {
        std::shared_ptr<ByteStream> stream;   ///< detached
        std::optional<std::uint64_t> length;  ///< Content-Length of the request
        std::string received;                 ///< what followed its head
        std::shared_ptr<void> hold;           ///< released with the connection
    };
    /// Called with a POST connection's hold when it is added. On any thread.
    using Joined = std::function<void(const std::shared_ptr<void>& hold)>;

    /// \param get           detached; its request is read and not answered
    /// \param registration  released at the end
    TunnelStream(std::shared_ptr<ByteStream> get, std::string cookie, Joined joined,
                 std::shared_ptr<void> registration);
    ~TunnelStream() override;

    /// Adds one more POST connection.
    /// \returns false, with `post` as it was, when too many wait or the tunnel has ended
    bool addPost(Post& post);

    Result send(const std::string_view* parts, std::size_t count, bool more) override;
    void close() override;

private:
    struct Reading;

    Status pump() OV_REQUIRES(mutex_) override;
    bool onCarrierReceivable() OV_REQUIRES(mutex_) override;
    bool watchesCarrier() const OV_REQUIRES(mutex_) override;
    bool holdsMore() const OV_REQUIRES(mutex_) override;
    void onIteration() OV_REQUIRES(mutex_) override;
    void updateOthers() OV_REQUIRES(mutex_) override;
    void attachOthers(EventLoop& loop) OV_REQUIRES(mutex_) override;
    void detachOthers() OV_REQUIRES(mutex_) override;

    bool drained() const OV_REQUIRES(mutex_);
    Status read() OV_REQUIRES(mutex_);
    void attachReading() OV_REQUIRES(mutex_);
    bool take(std::string_view bytes) OV_REQUIRES(mutex_);
    void answer() OV_REQUIRES(mutex_);
    Status readNext() OV_REQUIRES(mutex_);
    void endReading() OV_REQUIRES(mutex_);
    void countQuietAgain() OV_REQUIRES(mutex_);
    void onPost(std::uint32_t ready);

    const std::string cookie_;
    const Joined joined_;
    std::shared_ptr<void> registration_ OV_GUARDED_BY(mutex_);
    std::unique_ptr<Reading> reading_ OV_GUARDED_BY(mutex_);  // null between two POST connections
    std::deque<Post> waiting_ OV_GUARDED_BY(mutex_);
    bool getEnded_ OV_GUARDED_BY(mutex_) = false;
};

}  // namespace refhost

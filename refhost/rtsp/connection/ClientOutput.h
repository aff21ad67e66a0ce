#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/base/HostClock.h"
#include "refhost/base/SmallMutex.h"
#include "refhost/net/ByteStream.h"
#include "refhost/rtp/InterleavedTransport.h"

namespace refhost
{

/// The output of one stream: responses and interleaved frames, in the order of writing.
///
/// Every write goes to the stream at once, on the calling thread; bytes not taken wait here until the stream
/// is sendable. Frames are taken only while nothing waits. So at most one write of frames waits, followed by
/// `maxWaiting` bytes of responses plus one response; sent bytes are freed at once. Threads: any; one lock of
/// its own, never held while a listener is called.
class ClientOutput
{
public:
    /// Bytes of frames taken within `burstTime`.
    static constexpr std::size_t maxBurst = std::size_t{32} * 1024;
    static constexpr std::chrono::milliseconds burstTime{2};
    /// Frames up to this size (RTCP, audio) do not wait for the next burst: reports are not repeated.
    static constexpr std::size_t maxSmall = 1500;

    /// Bytes that are gathered before they are written.
    static constexpr std::size_t maxGathered = std::size_t{16} * 1024;

    /// \param stream      stays open until close() returns; watched for `sendable` while onWritable() is
    ///                    needed
    /// \param maxWaiting  bytes of responses that may wait for a client that does not read
    ClientOutput(ByteStream& stream, std::size_t maxWaiting, const HostClock& clock);

    /// Gathers output in `buffer` until uncork(), or until it is worth a system call. The buffer is empty,
    /// owned by the loop, and used under this object's lock.
    void cork(std::string& buffer);
    void uncork();
    /// Writes the gathered output now.
    void flush();

    /// Queues a response.
    /// \returns false when the client does not read its responses, or the stream failed: close the connection
    bool sendResponse(std::string_view response);

    /// \param more  more frames follow at once: the network may wait for them
    /// \returns `sent` when all was taken, `congested` with nothing taken (bytes wait, or the burst is over),
    ///          or `closed`
    SendStatus sendFrames(const std::uint8_t* data, std::size_t size, bool more = false);

    /// Calls `listener` once from onWritable(), when frames are taken again.
    void notifyWhenWritable(std::weak_ptr<TransportListener> listener);

    /// The stream takes bytes again.
    /// \returns false when it failed
    bool onWritable();

    /// Nothing is written after the return.
    void close();

    /// Whether no byte waits.
    bool empty() const;

    /// Bytes of waiting responses, without corked ones.
    std::size_t waitingResponses() const;

    /// Bytes of memory for waiting output.
    std::size_t held() const;

    /// Bytes sent so far; grows while the client reads.
    std::uint64_t bytesTaken() const;

private:
    enum class State
    {
        open,
        failed,  // the stream failed, or the client reads too little
        closed
    };

    std::size_t write(std::string_view first, std::string_view second = {}, bool more = false)
        OV_REQUIRES(mutex_);
    void flushCork() OV_REQUIRES(mutex_);
    void clearCork() OV_REQUIRES(mutex_);
    void keep(std::string_view rest) OV_REQUIRES(mutex_);
    void keepResponse(std::string_view rest) OV_REQUIRES(mutex_);
    void release(std::size_t taken) OV_REQUIRES(mutex_);
    std::size_t responsesLeft() const OV_REQUIRES(mutex_);
    bool burstIsOver() OV_REQUIRES(mutex_);
    void watchSendable() OV_REQUIRES(mutex_);

    ByteStream& stream_;
    const std::size_t maxWaiting_;
    const HostClock& clock_;
    std::atomic<std::uint64_t> bytesTaken_{0};
    mutable SmallMutex mutex_;
    State state_ OV_GUARDED_BY(mutex_) = State::open;
    bool watched_ OV_GUARDED_BY(mutex_) = false;  // the stream is watched for `sendable`
    MonotonicTime burstStart_ OV_GUARDED_BY(mutex_);
    std::size_t burst_ OV_GUARDED_BY(mutex_) = 0;        // bytes of frames since then
    std::string* cork_ OV_GUARDED_BY(mutex_) = nullptr;  // sent after what waits
    std::string waiting_ OV_GUARDED_BY(mutex_);          // the rest of one write of frames, then responses
    std::size_t waitingResponses_ OV_GUARDED_BY(mutex_) = 0;  // bytes of responses added since it was empty
    std::vector<std::weak_ptr<TransportListener>> listeners_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

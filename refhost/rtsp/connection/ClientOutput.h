#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/base/MonotonicClock.h"
#include "refhost/rtp/InterleavedTransport.h"

namespace refhost
{

/// What goes out on one socket: responses and interleaved frames, in the order of their writing.
///
/// Every write goes to the socket at once, from whichever thread; what the socket does not take waits here
/// and goes when it is writable again. Frames are taken only while nothing waits, so at most one write of
/// frames and behind it `maxWaiting` bytes of responses with one response more ever do; bytes that the socket
/// took are let go at once. Threads: any; one lock of its own, never held while a listener is called.
class ClientOutput
{
public:
    /// Told under the lock whether onWritable() is to be called when the socket takes bytes again.
    using WantWritable = std::function<void(bool wanted)>;

    /// Bytes of frames that are taken in one go, within `burstMs` milliseconds.
    static constexpr std::size_t burstMost = 32 * 1024;
    static constexpr std::int64_t burstMs = 2;
    /// Frames of this size and less (RTCP, sound) do not wait for the next burst: reports are not sent again.
    static constexpr std::size_t smallMost = 1500;

    /// Bytes that are gathered before they are written.
    static constexpr std::size_t gatheredMost = 16 * 1024;

    /// \param descriptor   non-blocking stream socket; stays open until after close()
    /// \param maxWaiting   bytes of responses that may wait for a client that does not read
    ClientOutput(int descriptor, std::size_t maxWaiting, MonotonicClock clock, WantWritable wantWritable);

    /// Gathers what is written in `buffer` until uncork(), or until so much came that a system call pays. The
    /// buffer is empty and the loop's own; it is used under this object's lock.
    void cork(std::string& buffer);
    void uncork();
    /// Writes what is gathered now.
    void flush();

    /// Queues a response.
    /// \returns false when the client does not take what it asks for, or the socket failed: end the
    /// connection
    bool sendResponse(std::string_view response);

    /// \param more  more frames follow at once: the network may wait for them
    /// \returns `sent` when all was taken, `congested` with nothing taken (something waits, or the burst is
    ///          over), or `closed`
    SendStatus sendFrames(const std::uint8_t* data, std::size_t size, bool more = false);

    /// Has `listener` told once by onWritable(), when frames are taken again.
    void notifyWhenWritable(std::weak_ptr<TransportListener> listener);

    /// The socket takes bytes again.
    /// \returns false when it failed
    bool onWritable();

    /// Nothing is written any more after the return.
    void close();

    /// True when no byte waits.
    bool empty() const;

    /// Bytes of responses that the socket did not take yet, without those of a cork.
    std::size_t waitingResponses() const;

    /// Bytes of memory that hold what waits.
    std::size_t held() const;

    /// Bytes that the socket took so far; grows while the client reads.
    std::uint64_t bytesTaken() const;

private:
    std::size_t write(std::string_view first, std::string_view second, int flags);
    void flushCork();
    void clearCork();
    void keep(std::string_view rest);
    void keepResponse(std::string_view rest);
    void release(std::size_t taken);
    std::size_t responsesLeft() const;
    bool burstIsOver();
    void want();

    const int descriptor_;
    const std::size_t maxWaiting_;
    const MonotonicClock clock_;
    const WantWritable wantWritable_;
    std::atomic<std::uint64_t> bytesTaken_{0};
    mutable std::mutex mutex_;
    bool closed_ = false;
    bool failed_ = false;
    bool wanted_ = false;
    std::int64_t burstBeganMs_ = 0;
    std::size_t burst_ = 0;             // bytes of frames since then
    std::string* cork_ = nullptr;       // what is gathered comes behind what waits
    std::string waiting_;               // the rest of one write of frames, and responses behind it
    std::size_t waitingResponses_ = 0;  // bytes of responses that came into it since it was empty
    std::vector<std::weak_ptr<TransportListener>> listeners_;
};

}  // namespace refhost

#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "bench/origin/RequestReader.h"
#include "bench/origin/SenderTrack.h"

namespace rtsporigin
{

/// What all cameras of a thread send. Units are stamped in place, so each thread has its own.
struct CannedMedia
{
    CannedVideo video;
    CannedUnit tone;
    bool hasAudio = false;
    int framesASecond = 25;
    int cameras = 1;
};

/// What a connection's media came to.
struct SendCounts
{
    std::int64_t units = 0;    ///< access units that were due
    std::int64_t dropped = 0;  ///< of them those that were not sent, because the client did not read
    std::int64_t late = 0;     ///< of them those sent a frame's time or more after they were due
};

/// One client's connection: answers its requests and sends the one camera that it plays.
///
/// A camera is a stream without end that all its connections share: what is sent depends on the time alone,
/// so a client that comes late gets what comes next, as of a real camera. Cameras are out of step with each
/// other. Threads: one.
class CameraConnection
{
public:
    using Clock = std::chrono::steady_clock;

    /// Max bytes that wait for a client that does not read; access units beyond are dropped.
    static constexpr std::size_t maxUnsent = 8U << 20U;

    /// \param descriptor  a connected, non-blocking socket, which the connection closes at its end
    /// \param media       outlives the connection
    /// \param epoch       when all cameras started
    /// \param random      differs from connection to connection
    CameraConnection(int descriptor, CannedMedia& media, Clock::time_point epoch, std::uint64_t random);
    ~CameraConnection();
    CameraConnection(const CameraConnection&) = delete;
    CameraConnection& operator=(const CameraConnection&) = delete;

    int descriptor() const
    {
        return descriptor_;
    }
    /// Reads what came and answers it. \returns false when the connection is over
    bool onReadable();
    /// Sends what waited. \returns false when the connection is over
    bool onWritable();
    /// Whether something waits until the client reads.
    bool hasUnsent() const
    {
        return !unsent_.empty();
    }
    bool plays() const
    {
        return plays_;
    }
    /// When the next access unit is due; only of one that plays.
    Clock::time_point nextDue() const;
    /// Sends the access unit that is due. \returns false when the connection is over
    bool sendDue(Clock::time_point now);

    const SendCounts& counts() const
    {
        return counts_;
    }

private:
    bool answer(const Request& request);
    bool describe(const Request& request);
    bool setUp(const Request& request);
    bool play(const Request& request, Clock::time_point now);
    bool reply(const Request& request, const char* status, const std::string& headers = {},
               const std::string& body = {});
    bool send(const std::uint8_t* data, std::size_t size);
    bool sendReports(std::chrono::nanoseconds capture);
    std::chrono::nanoseconds captureOf(std::int64_t frame) const;

    const int descriptor_;
    CannedMedia& media_;
    const Clock::time_point epoch_;
    RequestReader reader_;
    Bytes unsent_;
    SenderTrack video_;
    SenderTrack audio_;
    bool videoIsSetUp_ = false;
    bool audioIsSetUp_ = false;
    std::string session_;
    int camera_ = 0;
    bool plays_ = false;
    std::int64_t frame_ = 0;  ///< that comes next, counted from the epoch
    std::int64_t nextReport_ = 0;
    SendCounts counts_;
};

}  // namespace rtsporigin

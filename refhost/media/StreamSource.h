#pragma once
// Tested by tests/refhost/capture/CameraStream_test.cpp.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hostapi/description/SubMediaInfo.h"
#include "refhost/media/AccessUnit.h"
#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// One stream of a camera, whose tracks can be described, started and tapped.
///
/// Threads: any; no operation waits for the source.
class StreamSource
{
public:
    enum class Description
    {
        ready,     ///< the tracks are known
        starting,  ///< not known yet; the source was started, and ChangeSignal announces the result
        failed     ///< the source cannot be opened; the next describe() tries again
    };

    virtual ~StreamSource() = default;

    /// Describes the tracks, and starts the source if they are not known yet. Known tracks stay known while
    /// the source is stopped.
    /// \param[out] tracks  set when `ready`, otherwise unchanged
    virtual Description describe(std::vector<SubMediaInfo>& tracks) = 0;

    /// Adds a sink for a track's packets, which hold at most `payloadSize` bytes of RTP payload each. While
    /// the source runs, now or later, units are delivered from the next key frame on. The source holds the
    /// sink until detach().
    virtual void attach(const std::string& trackId, int payloadSize,
                        std::shared_ptr<AccessUnitSink> sink) = 0;
    /// Removes a sink; it is not called after the return.
    virtual void detach(const AccessUnitSink* sink) = 0;

    /// Adds a sink for the encoded media of all tracks, before packetization. While the source runs, now or
    /// later, every unit is delivered. The source holds the sink until detachMedia().
    virtual void attachMedia(std::shared_ptr<EncodedUnitSink> sink) = 0;
    /// Removes a sink; it is not called after the return. Requires: not called by the sink itself.
    virtual void detachMedia(const EncodedUnitSink* sink) = 0;

    /// Adds one viewer; the first one starts the source.
    virtual void acquire() = 0;
    /// Removes one viewer. The source stops some seconds after the last one, unless another is added.
    virtual void release() = 0;

    /// Requests a key frame from the encoder, if there is one. Key frames are large: requests in close
    /// succession yield one, and the source limits their rate, so that viewers who restart again and again
    /// cannot cause more.
    virtual void requestKeyFrame() = 0;

    /// Whether there are viewers.
    virtual bool isNeeded() const
    {
        return false;
    }

    /// What came from the source so far, across its restarts.
    struct Received
    {
        std::uint64_t packets = 0;  ///< RTP packets of all tracks; up to date within a second or so
        std::uint64_t bytes = 0;    ///< of encoded media of all tracks
        std::uint64_t keyFrames = 0;
        Duration keyFrameInterval{};  ///< between the last two; 0: not known
    };
    virtual Received received() const
    {
        return {};
    }

    /// Ends the source and starts it again, if somebody needs it; one that waits after a failure starts at once.
    virtual void restart() {}
};

/// The configured streams. One object serves the process; see Device. Announces on ChangeSignal::instance()
/// when the description of a stream becomes ready or fails. Threads: any.
class StreamDirectory
{
public:
    virtual ~StreamDirectory() = default;

    /// \returns null when no such stream is configured
    virtual std::shared_ptr<StreamSource> find(int cameraId, int streamId) = 0;

    /// Describes a camera's back channel, the track on which clients send audio to the device.
    /// \param[out] out  set on success, otherwise unchanged
    /// \returns false when the camera has no talk-back
    virtual bool describeBackChannel(int /*cameraId*/, SubMediaInfo& /*out*/)
    {
        return false;
    }
};

}  // namespace refhost

#pragma once
// Tested by tests/refhost/capture/CameraStream_test.cpp.

#include <memory>
#include <string>
#include <vector>

#include "hostapi/description/SubMediaInfo.h"
#include "refhost/media/AccessUnit.h"
#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// One stream of one camera, as the dispatch sees it: tracks that can be described, started and tapped.
///
/// Threads: any, for every operation; none of them waits for the source.
class StreamSource
{
public:
    enum class Description
    {
        ready,     ///< the tracks are known
        starting,  ///< not known yet; the source was started and ChangeSignal will tell of the change
        failed     ///< the source cannot be opened; the next describe() tries again
    };

    virtual ~StreamSource() = default;

    /// Tells the tracks, starting the source for it where they are not known yet. Once known they stay known
    /// while the source is stopped.
    /// \param[out] tracks  filled when `ready`, otherwise left as it was
    virtual Description describe(std::vector<SubMediaInfo>& tracks) = 0;

    /// Adds a tap of a track's packets with at most `payloadSize` bytes of RTP payload each. It delivers
    /// while the source runs, now or later, from its next key frame on. The source holds the sink until
    /// detach().
    virtual void attach(const std::string& trackId, int payloadSize,
                        std::shared_ptr<AccessUnitSink> sink) = 0;
    /// Removes a tap; the sink is not called any more after the return.
    virtual void detach(const AccessUnitSink* sink) = 0;

    /// Adds a sink of all tracks' media as they are before they are cut into packets. It is served while the
    /// source runs, now or later, from whatever comes next on. The source holds the sink until detachMedia().
    virtual void attachMedia(std::shared_ptr<EncodedUnitSink> sink) = 0;
    /// Removes a sink, not from within its calls; it is not called any more after the return.
    virtual void detachMedia(const EncodedUnitSink* sink) = 0;

    /// Counts one viewer; the first one starts the source.
    virtual void acquire() = 0;
    /// Takes one viewer back. Some seconds after the last one the source stops, unless another comes.
    virtual void release() = 0;

    /// Asks the encoder for a key frame soon, where there is an encoder to ask. Key frames are big:
    /// requests that come close together are answered by one, and the source sees to it that viewers who
    /// start again and again do not have them made at will.
    virtual void requestKeyFrame() = 0;
};

/// The configured streams. One object serves the process; see Device. When the description of some stream
/// became ready or failed, it is announced on ChangeSignal::instance().
class StreamDirectory
{
public:
    virtual ~StreamDirectory() = default;

    /// \returns null when no such stream is configured
    virtual std::shared_ptr<StreamSource> find(int cameraId, int streamId) = 0;

    /// Describes the track that clients may send audio on to the device through a camera's streams.
    /// \param[out] out  filled when there is one, otherwise left as it was
    /// \returns false when the camera has no talk-back
    virtual bool describeBackChannel(int /*cameraId*/, SubMediaInfo& /*out*/)
    {
        return false;
    }
};

}  // namespace refhost

#pragma once
// Tested by tests/refhost/live/LiveDispatcher_test.cpp.

#include <memory>
#include <string>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/live/LiveSettings.h"
#include "refhost/live/LiveTrack.h"
#include "refhost/media/StreamSource.h"

namespace refhost
{

/// The tracks of one camera stream, tapped from its source for sessions.
///
/// A tap stays attached without users, so that the next viewer starts from cached frames; one idle tap per
/// track. Threads: any.
class LiveStream
{
public:
    /// \param source  kept weakly
    LiveStream(const std::shared_ptr<StreamSource>& source, const LiveSettings& settings);
    /// Removes its taps from the source.
    ~LiveStream();
    LiveStream(const LiveStream&) = delete;
    LiveStream& operator=(const LiveStream&) = delete;

    /// The source; null once it is gone.
    std::shared_ptr<StreamSource> source() const
    {
        return source_.lock();
    }

    const LiveSettings& settings() const
    {
        return settings_;
    }

    /// The track in packets of this size; attached to the source at its first use.
    std::shared_ptr<LiveTrack> use(const std::string& trackId, bool video, int payloadSize);
    /// How sessions name a track.
    struct TrackName
    {
        std::string streamKey;
        std::string trackId;
        int payloadSize;
    };

    /// One object for all sessions that name it so.
    std::shared_ptr<const TrackName> nameOf(const std::string& streamKey, const std::string& trackId,
                                            int payloadSize);

    /// Ends one use().
    void leave(const LiveTrack& track);

private:
    struct Tap
    {
        std::string trackId;
        int payloadSize;
        int users;
        std::shared_ptr<LiveTrack> track;
    };

    const std::weak_ptr<StreamSource> source_;
    const LiveSettings settings_;
    const std::shared_ptr<StreamPast> past_ = std::make_shared<StreamPast>();
    Mutex mutex_;
    std::vector<Tap> taps_ OV_GUARDED_BY(mutex_);
    std::vector<std::shared_ptr<const TrackName>> names_
        OV_GUARDED_BY(mutex_);  // those in use, and a few former
};

}  // namespace refhost

#pragma once
// Tested by tests/refhost/live/LiveDispatcher_test.cpp.

#include <memory>
#include <string>
#include <unordered_map>

#include "refhost/base/Mutex.h"
#include "refhost/live/LiveSettings.h"
#include "refhost/live/LiveStream.h"

namespace refhost
{

/// The camera streams that viewers were given, each once, whichever dispatcher they came through: so all of
/// them share its taps. Threads: any.
class LiveStreams
{
public:
    explicit LiveStreams(const LiveSettings& settings);

    /// How streams start that do not start as LiveSettings says; by key().
    using Starts = std::unordered_map<std::string, LiveStart>;

    /// Changes the settings for streams that come from now on.
    void configure(const LiveSettings& settings, Starts starts = {});

    /// \returns null when no such stream is configured
    std::shared_ptr<LiveStream> find(int cameraId, int streamId);

    /// The text "<camera>/<stream>", which names a stream.
    static std::string key(int cameraId, int streamId);

private:
    Mutex mutex_;
    LiveSettings settings_ OV_GUARDED_BY(mutex_);
    Starts starts_ OV_GUARDED_BY(mutex_);
    std::unordered_map<std::string, std::shared_ptr<LiveStream>> streams_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

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

/// The camera streams in use, one object each, so that viewers of all dispatchers share its taps. Threads:
/// any.
class LiveStreams
{
public:
    explicit LiveStreams(const LiveSettings& settings);

    /// Streams with a start of their own, by key().
    using Starts = std::unordered_map<std::string, LiveStart>;

    /// Sets the settings of streams that viewers find from now on; those who have found one keep it.
    void configure(const LiveSettings& settings, Starts starts = {});

    /// \returns null when no such stream is configured
    std::shared_ptr<LiveStream> find(int cameraId, int streamId);

    /// Forgets a stream that is not configured any more.
    void forget(int cameraId, int streamId);

    /// The name of a stream: "<camera>/<stream>".
    static std::string key(int cameraId, int streamId);

private:
    Mutex mutex_;
    LiveSettings settings_ OV_GUARDED_BY(mutex_);
    Starts starts_ OV_GUARDED_BY(mutex_);
    std::unordered_map<std::string, std::shared_ptr<LiveStream>> streams_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

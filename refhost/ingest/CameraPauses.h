#pragma once
// Tested by tests/refhost/ingest/CameraPauses_test.cpp.

#include <chrono>
#include <cstddef>
#include <map>
#include <string>

#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"
#include "refhost/ingest/client/RtspClientEvents.h"

namespace refhost
{

/// When cameras are asked again that refused a login, or that asked for a pause.
///
/// Cameras lock out who sends a wrong password too often. So a login that was refused is sent again after
/// `firstPause` and then after twice as long each time, by all streams of the camera together. A camera that is
/// busy and says for how long (Retry-After) is left alone for that long.
///
/// Threads: any.
class CameraPauses
{
public:
    static constexpr Duration firstPause = std::chrono::seconds(30);
    static constexpr Duration maxPause = std::chrono::minutes(8);
    /// Cameras that are known at once; others are not noted.
    static constexpr std::size_t maxCameras = 65536;

    /// Notes why reading a camera ended.
    /// \param location  its URL with the credentials
    void noteEnd(const std::string& location, const RtspClientEnd& end, MonotonicTime now);
    /// Notes that a camera plays: its login is good.
    void notePlaying(const std::string& location);

    /// \returns why the camera is not asked now, for the log; empty when it is
    std::string refusal(const std::string& location, MonotonicTime now) const;

private:
    struct Pause
    {
        MonotonicTime until;
        Duration length{};
        std::string why;
    };

    static std::string loginOf(const std::string& location);
    const Pause* find(const std::string& key, MonotonicTime now) const OV_REQUIRES(mutex_);

    mutable Mutex mutex_;
    std::map<std::string, Pause> pauses_ OV_GUARDED_BY(mutex_);  ///< by login, or by location
};

}  // namespace refhost

#pragma once
// Tested by tests/refhost/rtsp/session/Multicast_test.cpp.

#include "hostapi/device/DeviceInfoEx.h"
#include "refhost/config/Config.h"
#include "refhost/rtsp/session/MediaRoutes.h"

namespace refhost
{

/// The URLs that the server serves and the library's controllers that serve them: registers the URL codecs
/// during its lifetime and creates the routes to the controller factories.
/// Threads: one. Created before clients can connect, destroyed when they are gone.
class ServedMedia
{
public:
    /// Platform type under which the library's own URL codec is registered.
    static constexpr int platformType = 1;

    /// Also passes the configuration to the dispatchers.
    explicit ServedMedia(const ServerConfig& config);
    ~ServedMedia();
    ServedMedia(const ServedMedia&) = delete;
    ServedMedia& operator=(const ServedMedia&) = delete;

    /// Has viewers start as another configuration says, from now on.
    static void setStarts(const ServerConfig& config);

    MediaRoutes routes(const DeviceInfoEx& device) const;

private:
    const std::string liveController_;
};

}  // namespace refhost

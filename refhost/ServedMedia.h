#pragma once
// Tested by tests/refhost/rtsp/session/Multicast_test.cpp.

#include "hostapi/device/DeviceInfoEx.h"
#include "refhost/config/Config.h"
#include "refhost/rtsp/session/MediaRoutes.h"

namespace refhost
{

/// Which URLs the server serves, and through which of the library's controllers: registers the codecs of
/// the URLs for as long as it lives, and makes the routes to the factories.
/// Threads: one. Make it before clients can come, destroy it when they are gone.
class ServedMedia
{
public:
    /// The number under which the library's own URL codec stands in the registry.
    static constexpr int platformType = 1;

    /// Tells the dispatchers of the configuration too.
    explicit ServedMedia(const ServerConfig& config);
    ~ServedMedia();
    ServedMedia(const ServedMedia&) = delete;
    ServedMedia& operator=(const ServedMedia&) = delete;

    MediaRoutes routes(const DeviceInfoEx& device) const;

private:
    const std::string liveController_;
};

}  // namespace refhost

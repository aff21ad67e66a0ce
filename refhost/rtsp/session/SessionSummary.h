#pragma once
// Tested by tests/refhost/http/HttpRoutes_test.cpp.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "refhost/base/SocketAddress.h"
#include "refhost/base/Times.h"

namespace refhost
{

/// One session for those who watch over the server. A value type.
struct SessionSummary
{
    std::uint64_t number = 0;    ///< names the session without giving control of it over RTSP; never reused
    std::string presentation;    ///< the URL's path, such as "orv/live/1/0"
    std::string_view kind;       ///< "live", "playback" or "multicast"
    std::string_view transport;  ///< of the first track, as the audit log has it; empty before
    SocketAddress::Key address{};
    std::string user;           ///< empty without users
    std::optional<int> camera;  ///< nothing where the URL names none
    WallTime since;
    std::size_t tracks = 0;
    bool playing = false;
    std::uint64_t bytes = 0;  ///< of RTP payload sent; 0 for multicast
    std::optional<Duration>
        lag;                 ///< from the capture of the last frame sent live; nothing before, and for others
    std::uint64_t lost = 0;  ///< packets that the client reported as lost
};

}  // namespace refhost

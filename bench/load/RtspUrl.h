#pragma once

#include <netinet/in.h>

#include <string>

namespace rtspload
{

/// An rtsp:// URL on this machine.
struct RtspUrl
{
    std::string text;  ///< as given
    sockaddr_in address{};

    /// Reads `rtsp://127.x.y.z[:port]/…` (or `localhost`).
    /// \throws std::invalid_argument when it is no such URL or leads to another machine
    static RtspUrl parse(const std::string& text);
};

}  // namespace rtspload

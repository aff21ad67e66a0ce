#pragma once

#include <optional>
#include <string>
#include <utility>

#include "refhost/access/Right.h"
#include "refhost/rtsp/session/MediaRoutes.h"

namespace refhost
{

/// What a presentation is, as far as rights are concerned. A value type.
struct MediaTarget
{
    Right right = Right::live;  ///< to watch it
    std::optional<int> camera;  ///< nothing where the URL names none

    /// Reads the camera with the codec that the route's controllers read it with, so that both mean the same.
    static MediaTarget of(const MediaRoutes::Route& route, const std::string& presentation);

    /// The camera and stream that a live presentation is of; nothing for a recorded one and where the URL names none.
    static std::optional<std::pair<int, int>> liveStreamOf(const MediaRoutes::Route& route,
                                                           const std::string& presentation);
};

}  // namespace refhost

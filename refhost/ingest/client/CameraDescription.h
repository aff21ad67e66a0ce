#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/ingest/client/CameraTrack.h"
#include "refhost/ingest/client/CameraUrl.h"

namespace refhost
{

/// What a camera's answer to DESCRIBE says (RFC 4566): what is of use is read, and the rest left out.
struct CameraDescription
{
    static constexpr std::size_t maxTracks = 32;      ///< others are left out
    static constexpr std::size_t maxParameters = 64;  ///< format parameters of a track; others are left out

    std::string control;  ///< URL of the whole presentation
    std::vector<CameraTrack> tracks;

    /// Reads a description. A track without payload type or clock rate is left out.
    /// \param url   of the request; without credentials in what comes of it
    /// \param base  target that control attributes refer to
    static CameraDescription read(std::string_view text, const CameraUrl& url, const std::string& base);
};

}  // namespace refhost

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace rtspload
{

/// One m-line of a description.
struct DescribedTrack
{
    std::string media;     ///< "video", "audio", …
    std::string encoding;  ///< of the rtpmap, such as "H264"; empty for a static payload type without one
    std::string url;       ///< what SETUP asks for
    std::string keyManagement{};  ///< value of "key-mgmt"; empty without one
};

/// What the load program needs of an SDP text.
struct SessionDescription
{
    std::string url;  ///< what PLAY and TEARDOWN ask for
    std::vector<DescribedTrack> tracks;

    /// \param base  the description's base URL (Content-Base, or the URL asked for)
    static SessionDescription parse(std::string_view sdp, std::string_view base);
};

}  // namespace rtspload

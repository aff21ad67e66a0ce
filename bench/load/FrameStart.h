#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace rtspload
{

/// What an RTP payload says of the frame it belongs to.
enum class FrameStart
{
    unknown,   ///< no slice starts in it: parameter sets, or the middle of a fragment
    keyFrame,  ///< a slice of a frame that a decoder can start on
    other      ///< a slice of any other frame
};

/// Reads one RTP payload of H.264 (RFC 6184: single NAL unit, STAP-A, FU-A) or H.265 (RFC 7798: single NAL
/// unit, AP, FU).
/// \param encoding  the rtpmap's name: "H264" or "H265"; anything else gives `unknown`
FrameStart frameStart(std::string_view encoding, const std::uint8_t* payload, std::size_t size);

}  // namespace rtspload

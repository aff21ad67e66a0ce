#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "refhost/rtsp/message/RangeHeader.h"
#include "refhost/rtsp/message/RtspRequest.h"
#include "refhost/rtsp/message/RtspStatus.h"

namespace refhost
{

/// How a PLAY request wants a recording to be played: its headers, read.
struct PlayRequest
{
    /// Where to begin and end; without it playing goes on where it is.
    std::optional<RangeHeader> range;
    /// How fast media time passes (RFC 2326, section 12.34), and how fast packets come (12.35), in multiples
    /// of real time; nothing where the header is missing, which means 1.
    std::optional<double> scale;
    std::optional<double> speed;
    /// A negative scale: `range` starts with its later end.
    bool backwards() const
    {
        return scale && *scale < 0;
    }
    /// The request requires "onvif-replay"; the two below count with it only.
    bool replay = false;
    /// "Rate-Control: no": packets come as fast as the client takes them.
    bool noRateControl = false;
    /// "Frames: intra": only frames that stand by themselves.
    bool keyFramesOnly = false;
    /// "Frames: intra/4000": these are at least that far apart in the recording.
    std::chrono::milliseconds keyFrameDistance{0};
    /// Low byte of the request's CSeq, which packets repeat.
    std::uint8_t sequence = 0;

    /// Reads Range, Scale and Speed, and with `replay` Rate-Control and Frames. "Immediate" needs no reading:
    /// a PLAY always takes the place of the one before.
    /// \param[out] out  filled in when 200 is returned
    /// \returns 200; what RangeHeader::parse() says of a bad Range; 400 for another header that is malformed
    static RtspStatus parse(const RtspRequest& request, bool replay, PlayRequest& out);

    /// Appends the value of a Scale or Speed header: "2.0", "-0.25".
    static void appendRate(std::string& out, double rate);
};

}  // namespace refhost

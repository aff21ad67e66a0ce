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

/// The headers of a PLAY request that say how to play a recording.
struct PlayRequest
{
    /// Where to start and end; without it playing continues from the present position.
    std::optional<RangeHeader> range;
    /// How fast media time passes (RFC 2326, section 12.34), and how fast packets are sent (12.35), in
    /// multiples of real time; nothing without the header, which means 1.
    std::optional<double> scale;
    std::optional<double> speed;
    /// A negative scale: `range` starts at its later end.
    bool backwards() const
    {
        return scale && *scale < 0;
    }
    /// The request requires "onvif-replay". Without it, the members below keep their defaults.
    bool replay = false;
    /// "Rate-Control: no": packets are sent as fast as the client takes them.
    bool noRateControl = false;
    /// "Frames: intra": key frames only.
    bool keyFramesOnly = false;
    /// "Frames: intra/4000": the minimum distance of these in the recording.
    std::chrono::milliseconds keyFrameDistance{0};
    /// Low byte of the request's CSeq, repeated in the packets.
    std::uint8_t sequence = 0;

    /// Reads Range, Scale and Speed, and with `replay` Rate-Control and Frames. Ignores "Immediate": a PLAY
    /// always replaces the previous one.
    /// \param[out] out  filled in when 200 is returned
    /// \returns 200; the status of RangeHeader::parse() for a bad Range; 400 for another malformed header
    static RtspStatus parse(const RtspRequest& request, bool replay, PlayRequest& out);

    /// Appends the value of a Scale or Speed header: "2.0", "-0.25".
    static void appendRate(std::string& out, double rate);
};

}  // namespace refhost

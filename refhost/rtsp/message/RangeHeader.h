#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "refhost/rtsp/message/RtspStatus.h"

namespace refhost
{

/// The Range header of PLAY and PAUSE (RFC 2326, section 12.29) in normal play time (3.6) or absolute time
/// (3.7). Parameters after a semicolon (";time=") are ignored.
///
/// Parsed by hand and not with gst_rtsp_range_parse(): that one accepts "npt=abc-", "npt=nan-" and "npt=5-3"
/// and reads decimal points by the locale.
struct RangeHeader
{
    enum class Unit
    {
        npt,   ///< normal play time: since the start of the presentation
        clock  ///< absolute time: since 1970, UTC
    };

    /// A position: how long after the origin of the unit.
    using Position = std::chrono::microseconds;

    Unit unit = Unit::npt;
    /// Where to start; nothing for "-10" and "now-", which leave it open.
    std::optional<Position> begin;
    /// Where to end; nothing for the end of the presentation.
    std::optional<Position> end;

    /// The range in the response to PLAY of a live stream.
    static constexpr std::string_view live = "npt=now-";

    /// A negative or malformed start in play time ("-5-10", "abc-", "0.-245-") counts as 0: some players
    /// compute such values.
    /// \param backwards  playing backwards: `begin` is the later end, whichever is named first
    /// \param[out] out   the range when 200 is returned
    /// \returns 200 for a well-formed npt or clock range ("now-", "0.000-", "1:02:03.5-", "-10", "0-10",
    ///          "19961108T142300Z-19961108T143520.25Z"); 501 for a unit unknown to RFC 2326; 457 for
    ///          everything else: a malformed or empty range, or SMPTE times, which are not supported
    static RtspStatus parse(std::string_view value, RangeHeader& out, bool backwards = false);

    /// The same for PAUSE, whose range is one instant: "npt=10" or "npt=10-".
    /// \param[out] out  `begin` is filled in when 200 is returned
    static RtspStatus parsePoint(std::string_view value, RangeHeader& out);

    /// Checks the range of a live stream, which always plays from now on.
    /// \returns the status of parse(), but 457 for a clock range, which a live stream does not have
    static RtspStatus checkLive(std::string_view value);

    /// Appends the value of a header: "npt=5.000-60.000", "clock=19961108T142300.000Z-". Negative play times
    /// count as 0.
    static void append(std::string& out, Unit unit, Position begin, std::optional<Position> end);
};

}  // namespace refhost

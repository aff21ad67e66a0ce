#pragma once

#include <string_view>

#include "refhost/rtsp/RtspStatus.h"

namespace refhost
{

/// The Range header of PLAY and PAUSE (RFC 2326, section 12.29), as far as a live stream has one: it plays
/// from now on, whatever the client asks for, and says so ("npt=now-").
///
/// Parsed by hand and not with gst_rtsp_range_parse(): that one accepts "npt=abc-", "npt=nan-" and "npt=5-3"
/// and reads decimal points as the locale wants them.
class RangeHeader
{
public:
    /// What PLAY of a live stream answers.
    static constexpr std::string_view live = "npt=now-";

    /// \returns 200 for a well-formed npt range ("now-", "0.000-", "1:02:03.5-", "-10", "0-10"), with or
    ///          without ";time="; 501 for a unit that RFC 2326 does not know; 457 for everything else: a
    ///          malformed range, one that ends before it begins, and clock and SMPTE ranges, which a live
    ///          stream does not have
    static RtspStatus checkLive(std::string_view value);
};

}  // namespace refhost

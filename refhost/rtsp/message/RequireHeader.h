#pragma once

#include <string>

#include "refhost/rtsp/message/RtspRequest.h"

namespace refhost
{

/// The features that a request requires (RFC 2326, sections 12.32 and 12.27). Proxy-Require is treated as
/// Require; both may appear several times, with several option tags each.
struct RequireHeader
{
    /// "www.onvif.org/ver20/backchannel": include the presentation's talk-back track.
    bool backchannel = false;
    /// "onvif-replay": packets of a recording carry the replay header extension.
    bool replay = false;
    /// The unknown tags, as the Unsupported header of a 551 response lists them. Without line ends, even from
    /// folded header lines.
    std::string unsupported;

    /// Option tags are case-sensitive.
    static RequireHeader of(const RtspRequest& request);

    /// Makes "onvif-replay" unsupported, because the presentation is no recording.
    void refuseReplay();
};

}  // namespace refhost

#pragma once

#include <string>

#include "refhost/rtsp/message/RtspRequest.h"

namespace refhost
{

/// The features that a request insists on (RFC 2326, sections 12.32 and 12.27). A server treats Proxy-Require
/// as Require; both may come several times, with several option tags each.
struct RequireHeader
{
    /// "www.onvif.org/ver20/backchannel": the presentation's talk-back track is wanted too.
    bool backchannel = false;
    /// "onvif-replay": packets of a recording carry the replay header extension.
    bool replay = false;
    /// The tags that this server does not know, as the Unsupported header lists them; the request is answered
    /// 551 then. Without line ends, though a folded header line may have brought some along.
    std::string unsupported;

    /// Option tags are compared letter by letter.
    static RequireHeader of(const RtspRequest& request);

    /// Counts "onvif-replay" as unsupported: the presentation is no recording.
    void refuseReplay();
};

}  // namespace refhost

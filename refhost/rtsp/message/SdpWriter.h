#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "hostapi/description/MediaInfo.h"
#include "refhost/rtp/multicast/MulticastGroup.h"
#include "refhost/rtsp/message/RangeHeader.h"

namespace refhost
{

/// Writes the session description of a presentation, live or recorded (RFC 4566; RFC 2326, appendix C).
///
/// By hand, because the fifty or so allocations of a GstSDPMessage would be the most expensive part of
/// DESCRIBE; the tests read the result back with GstSDPMessage. Threads: any; constant.
class SdpWriter
{
public:
    /// \param version  session version of the descriptions, constant while the server runs
    explicit SdpWriter(std::uint64_t version);

    /// The server as the client sees it.
    struct Origin
    {
        std::string_view address;  ///< numeric
        bool ipv6 = false;
    };

    /// The attributes that carry a track's SRTP keys, as whole lines. \see OfferedKeys
    struct KeyLines
    {
        std::string trackId;
        std::string text;
    };

    /// Appends the description. With an audio back channel, every track has a direction.
    /// \param destination   the group that the presentation is sent to; null where SETUP decides
    /// \param unit  the unit of a recording's range
    /// \param keys  the keys of all tracks, whose profile is RTP/SAVP then; null: it is RTP/AVP
    void append(std::string& out, const MediaInfo& info, const Origin& origin,
                const MulticastDestination* destination = nullptr,
                RangeHeader::Unit unit = RangeHeader::Unit::npt,
                const std::vector<KeyLines>* keys = nullptr) const;

private:
    const std::uint64_t version_;
};

}  // namespace refhost

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "hostapi/description/MediaInfo.h"

namespace refhost
{

/// Writes the session description of a presentation, live or recorded (RFC 4566; RFC 2326, appendix C).
///
/// By hand and not with GstSDPMessage, whose some fifty allocations a description would be the dearest part
/// of DESCRIBE; the tests read the result back with GstSDPMessage. Threads: any; constant.
class SdpWriter
{
public:
    /// \param version  number of this description, the same for every client while the server runs
    explicit SdpWriter(std::uint64_t version);

    /// Appends the description. Where one of the tracks is an audio back channel, every track has its
    /// direction.
    /// \param address  numeric address of the server as the client sees it
    /// \param ipv6     true for an IPv6 address
    void append(std::string& out, const MediaInfo& info, std::string_view address, bool ipv6) const;

private:
    const std::uint64_t version_;
};

}  // namespace refhost

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "refhost/base/Times.h"

namespace refhost
{

/// Finds sender reports and BYEs in the RTCP packets of a camera (RFC 3550, sections 6.4.1 and 6.6).
/// Threads: any; no state.
class SenderReports
{
public:
    struct Report
    {
        std::uint32_t ssrc = 0;
        std::uint32_t timestamp = 0;   ///< RTP timestamp of the same instant
        std::optional<WallTime> wall;  ///< NTP time; nothing when the sender has no wall clock
        NtpTime sent;                  ///< NTP time as in the report
    };

    using OnReport = std::function<void(const Report&)>;
    using OnBye = std::function<void(std::uint32_t ssrc)>;

    /// Reads a compound packet up to the first malformed one in it.
    static void read(const std::uint8_t* data, std::size_t size, const OnReport& onReport,
                     const OnBye& onBye);
};

}  // namespace refhost

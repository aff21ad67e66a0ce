#pragma once

#include <cstddef>
#include <cstdint>

#include "refhost/base/Times.h"
#include "refhost/media/AccessUnit.h"

namespace refhost
{

/// The RTP header extension of ONVIF replay (ONVIF Streaming Service, "RTP header extension"): when an
/// access unit was recorded and how it stands in the recording.
struct ReplayExtension
{
    /// Bytes that it adds to a packet.
    static constexpr std::size_t size = 16;
    static constexpr std::uint16_t identifier = 0xabac;

    WallTime recorded;
    bool cleanPoint = false;        ///< C: a decoder can start here
    bool endOfRange = false;        ///< E: the last one before a gap or the end
    bool discontinuity = false;     ///< D: it does not follow what was sent before
    std::uint8_t playSequence = 0;  ///< low byte of the CSeq of the PLAY request

    /// A copy of `unit` whose first packet carries the extension; the others of a unit do without.
    AccessUnitPtr addTo(const AccessUnit& unit) const;
};

}  // namespace refhost

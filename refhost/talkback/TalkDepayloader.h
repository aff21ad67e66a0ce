#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "hostapi/description/SubMediaInfo.h"

namespace refhost
{

/// Extracts encoded frames from RTP payloads: PCMU and PCMA (RFC 3551, section 4.5.14), AAC in mode AAC-hbr
/// (RFC 3640, section 3.3.6), where a packet holds several access units or a fragment of one.
///
/// Threads: one at a time.
class TalkDepayloader
{
public:
    /// One frame, in memory of the payload or of the depayloader; valid until the next call.
    struct Frame
    {
        const std::uint8_t* data;
        std::size_t size;
        std::uint32_t ticks;  ///< its duration in ticks of the RTP clock
    };

    /// \returns null for a codec that is not supported
    static std::unique_ptr<TalkDepayloader> make(const SubMediaInfo& track);

    virtual ~TalkDepayloader() = default;

    /// Reads one payload; they come in order.
    /// \param timestamp    of the packet
    /// \param[out] frames  the frames completed by it, maybe none
    /// \returns false for a malformed payload, which gives no frames
    virtual bool read(const std::uint8_t* payload, std::size_t size, std::uint32_t timestamp, bool marker,
                      std::vector<Frame>& frames) = 0;

    /// Packets are missing before the next payload.
    virtual void reset() = 0;
};

}  // namespace refhost

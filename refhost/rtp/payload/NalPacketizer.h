#pragma once
// Tested by tests/refhost/rtp/payload/H264Packetizer_test.cpp, tests/refhost/rtp/payload/H265Packetizer_test.cpp.

#include <memory>
#include <vector>

#include "refhost/media/NalSyntax.h"
#include "refhost/rtp/payload/PacketRun.h"
#include "refhost/rtp/payload/Packetizer.h"
#include "refhost/rtp/payload/ParameterSets.h"

namespace refhost
{

/// H.264 (RFC 6184, packetization mode 1) and H.265 (RFC 7798): what stands in front of a frame's slices goes
/// together where it fits (STAP-A, AP), slices go alone, and in fragments (FU-A, FU) where they are larger
/// than a packet. Delimiters and filler are left out. Threads: one at a time.
class NalPacketizer : public Packetizer
{
public:
    /// \param codec  H.264 or H.265
    NalPacketizer(Codec codec, std::size_t payloadSize);

protected:
    const char* packUnit(const EncodedUnit& unit, std::uint32_t rtpTimestamp,
                         std::vector<std::shared_ptr<AccessUnit>>& out) override;

private:
    bool split(const EncodedUnit& unit);
    void useSetsOf(const std::shared_ptr<const MediaFormat>& format);
    void addAggregate(std::size_t first, std::size_t count);
    std::size_t aggregable(std::size_t first) const;
    void addFragments(ByteSpan unit);

    const NalSyntax& syntax_;
    const std::size_t payloadSize_;
    std::shared_ptr<const MediaFormat> format_;  ///< whose sets are here
    ParameterSets sets_;
    std::size_t lengthSize_ = 4;   ///< bytes in front of each NAL unit
    bool hasSets_ = false;         ///< the unit that is packed has its parameter sets
    std::vector<ByteSpan> units_;  ///< of the unit that is packed
    std::vector<std::uint8_t> scratch_;
    PacketRun run_;
};

}  // namespace refhost

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "refhost/rtp/payload/AacTrack.h"
#include "refhost/rtp/payload/Depacketizer.h"
#include "refhost/rtp/payload/PacketRun.h"
#include "refhost/rtp/payload/PlainBits.h"

namespace refhost
{

/// AAC as RFC 3640 packs it, in the modes AAC-hbr and AAC-lbr or with the sizes of the fields spelled out:
/// several units in a packet, or one unit in fragments; interleaved units are refused. Packets that are not of
/// mode AAC-hbr are not passed on: each unit gets one that is. Threads: one at a time.
class AacDepacketizer : public Depacketizer
{
public:
    /// \returns null with `error` set for a description without a config, and for fields that are not read
    static std::unique_ptr<Depacketizer> make(const PayloadDescription& track, Deliver deliver,
                                              std::string& error);

    void flush() override {}
    void reset() override;

protected:
    const char* take(const RtpPacketView& packet, std::uint32_t lost) override;

private:
    /// Bits of the fields of an access unit header (RFC 3640, section 3.2.1).
    struct Fields
    {
        unsigned size = 0;
        unsigned index = 0;
        unsigned indexDelta = 0;
    };

    AacDepacketizer(const Fields& fields, AacTrack track, Deliver deliver);

    static bool readFields(const FormatParameters& parameters, Fields& fields, std::string& error);
    const char* readHeaders(ByteSpan payload, ByteSpan& data);
    const char* takeFragment(const RtpPacketView& packet, ByteSpan payload, ByteSpan data);
    void deliverUnit(ByteSpan unit, std::uint32_t timestamp, std::shared_ptr<AccessUnit> packets,
                     std::uint32_t maxPayload);

    const Fields fields_;
    const bool passes_;  ///< the sender's packets are such as Packetizer::describe() announces
    const std::uint32_t unitTicks_;
    Outputs making_;                       ///< for the unit that is under way
    std::vector<std::uint32_t> sizes_;     ///< of the units in the packet at hand
    std::vector<std::uint8_t> fragments_;  ///< of the unit that is under way
    PacketRun run_;                        ///< as fragments_
    std::size_t wholeSize_ = 0;            ///< of that unit; 0: none is under way
    std::uint32_t timestamp_ = 0;          ///< of that unit
};

}  // namespace refhost

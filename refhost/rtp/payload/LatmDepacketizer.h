#pragma once

#include <memory>
#include <string>
#include <vector>

#include "refhost/rtp/payload/AacTrack.h"
#include "refhost/rtp/payload/Depacketizer.h"

namespace refhost
{

/// AAC as RFC 6416 packs it (MP4A-LATM), with the configuration in the description (cpresent=0) and one layer
/// of one program. Whole elements are known by their lengths; markers are not needed. The packets of its units
/// are of mode AAC-hbr (RFC 3640), which Packetizer::describe() announces for AAC. Threads: one at a time.
class LatmDepacketizer : public Depacketizer
{
public:
    /// \returns null with `error` set for a configuration in band, and for one that is not read
    static std::unique_ptr<Depacketizer> make(const PayloadDescription& track, Deliver deliver,
                                              std::string& error);

    void flush() override {}
    void reset() override;

protected:
    const char* take(const RtpPacketView& packet, std::uint32_t lost) override;

private:
    LatmDepacketizer(AacTrack track, std::size_t units, Deliver deliver);

    bool findUnits();
    void deliverUnit(ByteSpan bytes, std::uint32_t timestamp);

    const std::uint32_t unitTicks_;
    const std::size_t units_;            ///< in an element
    std::vector<std::uint8_t> element_;  ///< as far as it is here
    std::vector<ByteSpan> found_;        ///< units of the element
    std::uint32_t timestamp_ = 0;        ///< of the element
};

}  // namespace refhost

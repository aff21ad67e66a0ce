#pragma once
// Tested by tests/refhost/rtp/payload/H264Depacketizer_test.cpp, tests/refhost/rtp/payload/H265Depacketizer_test.cpp.

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "refhost/media/NalSyntax.h"
#include "refhost/rtp/payload/Depacketizer.h"
#include "refhost/rtp/payload/FrameEnds.h"
#include "refhost/rtp/payload/NalLead.h"
#include "refhost/rtp/payload/NalUnits.h"
#include "refhost/rtp/payload/PacketRun.h"
#include "refhost/rtp/payload/ParameterSets.h"

namespace refhost
{

/// H.264 (RFC 6184: single NAL units, STAP-A, FU-A) and H.265 (RFC 7798: single NAL units, AP, FU), in the
/// order in which they are decoded; a packet may also hold units with start codes between. Threads: one at a
/// time.
class NalDepacketizer : public Depacketizer
{
public:
    /// \returns null with `error` set for interleaved packets, and for a clock that is not of 90 kHz
    static std::unique_ptr<Depacketizer> make(Codec codec, const PayloadDescription& track, Deliver deliver,
                                              std::string& error);

    void flush() override;
    void reset() override;

protected:
    const char* take(const RtpPacketView& packet, std::uint32_t lost) override;

private:
    /// What is known of the frame that is gathered.
    struct Frame
    {
        std::uint32_t timestamp = 0;
        bool hasSlice = false;
        bool hasWholeSlice = false;
        bool hasKeySlice = false;
        bool hasSequenceSet = false;
        bool hasRecoveryPoint = false;
        bool isIntra = true;  ///< all slices, where something says that they may be
        bool startIsHere = false;
        bool damaged = false;      ///< something of it is missing
        bool lossInFront = false;  ///< something in front of it is missing
        bool tooLarge = false;     ///< it is left out
    };

    /// A NAL unit of which a part is here.
    struct Open
    {
        NalKind kind = NalKind::other;
        std::array<std::uint8_t, 2> header{};
        bool is = false;
        bool inMedia = false;         ///< media_ holds what is here of it
        bool ends = false;            ///< its last part is marked as that
        std::size_t firstPacket = 0;  ///< of it in packets_
    };

    NalDepacketizer(const NalSyntax& syntax, const FormatParameters& parameters, Deliver deliver);

    void separate(std::uint32_t timestamp, const NalLead& lead);
    void start(std::uint32_t timestamp, const NalLead& lead);
    void add(ByteSpan payload, const NalLead& lead);
    void passOn(ByteSpan payload);
    void addUnit(ByteSpan unit);
    void addAnnexB(ByteSpan payload);
    void addFragment(ByteSpan payload);
    void openFragment(const NalSyntax::Fragment& fragment);
    void endFragment(bool whole);
    void noteSlice(NalKind kind, ByteSpan body);
    /// \returns false when the unit does not belong into the media
    bool noteUnit(NalKind kind, ByteSpan unit);
    void loseInside();
    bool fits(ByteSpan payload) const;
    void finish();
    void putSetsInFront();
    DepacketizedUnit made();
    void forget();

    const NalSyntax& syntax_;
    ParameterSets sets_;
    bool setsChanged_ = false;
    FrameEnds ends_;
    NalUnits media_;
    PacketRun packets_;
    std::vector<std::uint8_t> openSet_;  ///< a parameter set that comes in fragments
    Outputs making_;                     ///< for the frame that is gathered
    Frame frame_;
    bool gathering_ = false;    ///< frame_ holds something
    bool lossPending_ = false;  ///< packets are missing in front of the next one
    Open open_;
    std::array<std::size_t, 2> expectedBytes_{};    ///< of key frames and of others
    std::array<std::size_t, 2> expectedPackets_{};  ///< as expectedBytes_
    bool hasLast_ = false;
    std::uint32_t lastTimestamp_ = 0;  ///< of the frame before
};

}  // namespace refhost

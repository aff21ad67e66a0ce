#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "refhost/rtp/payload/Depacketizer.h"
#include "refhost/rtp/payload/FrameEnds.h"
#include "refhost/rtp/payload/JpegHeader.h"
#include "refhost/rtp/payload/PacketRun.h"

namespace refhost
{

/// MJPEG (RFC 2435): types 0 and 1, with and without restart markers, quantizers of 8 bits by a quality or in
/// band. Of a frame of which something is lost remains what precedes it. Threads: one at a time.
class JpegDepacketizer : public Depacketizer
{
public:
    /// \returns null with `error` set for a clock that is not of 90 kHz
    static std::unique_ptr<Depacketizer> make(const PayloadDescription& track, Deliver deliver,
                                              std::string& error);

    void flush() override;
    void reset() override;

protected:
    const char* take(const RtpPacketView& packet, std::uint32_t lost) override;

private:
    /// The headers of one packet.
    struct Fields
    {
        std::uint32_t offset = 0;  ///< of the fragment in the scan
        unsigned quality = 0;
        JpegHeader header;  ///< its quantizers are empty where the packet has none
        ByteSpan fragment;
    };

    explicit JpegDepacketizer(Deliver deliver);

    static const char* read(ByteSpan payload, Fields& out);
    static const char* readQuantizers(ByteSpan& payload, Fields& out);
    const char* start(Fields& fields, std::uint32_t timestamp);
    bool findQuantizers(Fields& fields);
    void finish();
    void forget();

    /// Of qualities 128 to 254, which may be sent once.
    std::map<unsigned, std::vector<std::uint8_t>> quantizers_;
    FrameEnds ends_;
    PacketRun packets_;
    std::vector<std::uint8_t> media_;
    std::size_t expectedBytes_ = 0;
    Outputs making_;  ///< for the frame that is gathered
    JpegHeader header_;
    std::uint32_t timestamp_ = 0;
    std::size_t scanSize_ = 0;  ///< of what is here of the scan without a gap
    bool gathering_ = false;
    bool damaged_ = false;
    bool tooLarge_ = false;
    bool lossPending_ = false;
};

}  // namespace refhost

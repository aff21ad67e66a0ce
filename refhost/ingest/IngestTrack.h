#pragma once
// Tested by tests/refhost/ingest/IngestTrack_test.cpp.

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "refhost/base/Times.h"
#include "refhost/capture/DecodeTimes.h"
#include "refhost/capture/MediaTap.h"
#include "refhost/capture/PacketTap.h"
#include "refhost/capture/SourceClock.h"
#include "refhost/capture/SourceRun.h"
#include "refhost/ingest/RefusalLog.h"
#include "refhost/media/Codec.h"
#include "refhost/rtp/ReceptionStatistics.h"
#include "refhost/rtp/payload/Depacketizer.h"
#include "refhost/rtp/payload/Packetizer.h"

namespace refhost
{

/// One track of a camera that is read over RTP: makes of its packets what viewers and recordings take.
///
/// Viewers get the camera's own packets with rewritten headers where these fit into the payload size that they
/// asked for, and otherwise the same frames in packets of their own. Timestamps stay the camera's.
///
/// Threads: one at a time.
class IngestTrack
{
public:
    using Taps = SourceRun::TrackTaps;

    /// Whose clock says when media were captured.
    enum class Clock
    {
        camera,  ///< the camera's sender reports
        server   ///< the arrival of its packets
    };

    /// What the track is.
    struct Source
    {
        Codec codec{};
        PayloadDescription description;
        int payloadType = 0;  ///< packets of others are left out
        Clock clock = Clock::camera;
        MonotonicTime epoch;  ///< the arrivals of packets lie behind it
        std::string title;    ///< the stream's name in the log
    };

    /// \param[out] error  where null is returned: why the track cannot be read
    static std::unique_ptr<IngestTrack> make(const Source& source, std::shared_ptr<MediaTap> mediaTap,
                                             std::string& error);
    ~IngestTrack();

    /// Sets where packets go from now on, by payload size.
    void setTaps(Taps taps);

    /// Takes an RTP packet, in the order in which the camera sent it: one that comes late, or twice, is left out.
    /// So is a malformed one, and one of another payload type; the log says it once.
    void onPacket(const std::uint8_t* data, std::size_t size, MonotonicTime arrival);

    struct Report
    {
        bool clockWrong = false;  ///< differs too much from this machine's: arrivals count
        bool ended = false;       ///< the camera ends this track (BYE)
    };

    /// Takes a compound RTCP packet.
    Report onReport(const std::uint8_t* data, std::size_t size, MonotonicTime arrival);

    /// \returns what a receiver report says now; nothing before the first packet
    std::optional<ReceptionReport> receptionReport(MonotonicTime now);

    /// The camera's SSRC, once a packet came.
    std::uint32_t ssrc() const
    {
        return ssrc_;
    }

    /// Whether a sender report with a time came.
    bool hasCameraTime() const
    {
        return hasCameraTime_;
    }

    Codec codec() const
    {
        return codec_;
    }

    /// Of the media; null as long as it is not known.
    const std::shared_ptr<const MediaFormat>& format() const
    {
        return depacketizer_->format();
    }

private:
    /// A timestamp with the media time that it stands for.
    struct Anchor
    {
        std::uint32_t timestamp = 0;
        Duration media{};
    };

    IngestTrack(const Source& source, std::shared_ptr<MediaTap> mediaTap);

    bool isLate(const RtpPacketView& packet) const;
    std::uint32_t countLost(const RtpPacketView& packet, MonotonicTime arrival, bool& restarted);
    void place(const RtpPacketView& packet, MonotonicTime arrival);
    void setOutputs();
    void onUnit(DepacketizedUnit&& unit);
    MonotonicTime captureTimeOf(std::uint32_t timestamp) const;
    void record(const std::shared_ptr<EncodedUnit>& unit);
    void send(DepacketizedUnit& unit, const EncodedUnit* media, MonotonicTime captureTime);

    const Codec codec_;
    const RtpClock rtpClock_;
    const int payloadType_;
    const Clock clock_;
    const MonotonicTime epoch_;
    const std::shared_ptr<MediaTap> mediaTap_;
    SourceClock sourceClock_;
    ReceptionStatistics statistics_;
    std::unique_ptr<Depacketizer> depacketizer_;
    RefusalLog refusals_;
    DecodeTimes decodeTimes_;
    std::shared_ptr<const MediaFormat> timedFormat_;  ///< that decodeTimes_ is set for

    Taps taps_;
    std::map<int, std::unique_ptr<Packetizer>>
        packetizers_;               ///< for taps that the camera's packets do not fit
    std::uint32_t maxPayload_ = 0;  ///< of the camera's packets so far, bytes
    bool sawKeyFrame_ = false;
    bool frameIsMissing_ = false;  ///< of the last one nothing was left to record

    bool started_ = false;
    std::uint32_t ssrc_ = 0;
    std::uint16_t sequence_ = 0;  ///< of the last packet in order
    Anchor last_;                 ///< of the packet that came last
    Anchor before_;               ///< of the last one with another timestamp
    bool placed_ = false;         ///< last_ and before_ are set
    std::uint32_t offset_ = 0;    ///< of viewers' timestamps from the camera's
    bool hasCameraTime_ = false;
};

}  // namespace refhost

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "hostapi/description/SubMediaInfo.h"
#include "refhost/base/Times.h"
#include "refhost/rtp/ReceptionStatistics.h"
#include "refhost/rtp/ReorderWindow.h"
#include "refhost/talkback/TalkDecoder.h"
#include "refhost/talkback/TalkDepayloader.h"
#include "refhost/talkback/TalkReceiveQueue.h"
#include "refhost/talkback/TalkSettings.h"

namespace refhost
{

/// What became of the packets of one talk-back session since its last PLAY.
struct TalkStatistics
{
    std::uint64_t packets = 0;        ///< RTP that was taken
    std::uint64_t malformed = 0;      ///< no RTP, or a payload that does not follow its codec's rules
    std::uint64_t wrongType = 0;      ///< of another payload type than the description's
    std::uint64_t foreign = 0;        ///< of another source while the first one sends
    std::uint64_t outOfSequence = 0;  ///< far away in the sequence
    std::uint64_t late = 0;           ///< came after their turn
    std::uint64_t duplicates = 0;     ///< came twice
    std::uint64_t lost = 0;           ///< never came in time: concealed
    std::uint64_t stale = 0;          ///< waited too long for the output
    std::uint64_t overrun = 0;  ///< came faster than they could be taken, or hold more than can be played
    std::uint64_t badRtcp = 0;  ///< malformed RTCP packets
};

/// The receiving side of one talk-back session: from packets as they come to samples in order.
///
/// The first source is the session's; another one takes its place when nothing came of it for half a second.
/// A decoder exists from the first packet that is to be heard until release(): an AAC decoder takes more
/// memory than everything else of a session. Keeps at most the packets that ReorderWindow holds.
/// Threads: one at a time.
class TalkReception
{
public:
    using MakeDecoder = std::function<std::unique_ptr<TalkDecoder>()>;

    /// \param track  of a codec that `depayloader` reads
    /// \param makeDecoder  called when a packet is to be heard and there is no decoder; one that returns null
    ///                     makes the packet count as malformed
    TalkReception(const SubMediaInfo& track, const TalkSettings& settings,
                  std::unique_ptr<TalkDepayloader> depayloader, MakeDecoder makeDecoder);

    /// Starts again: the next packet is the first one.
    void reset();

    /// Lets go of the decoder until it is needed again.
    void release();

    /// Takes a packet as it came.
    /// \returns true when it is audio of the session's source
    bool add(const TalkReceiveQueue::Packet& packet);

    /// Takes what is in order now. Two fifths of a second are decoded at most, and the last packet of them to
    /// its end if it is PCM; what is here beyond that is dropped, because no output takes it and decoding it
    /// would keep the worker from the other sessions.
    /// \param heard            false drops the audio instead of decoding it
    /// \param[in,out] samples  decoded and concealed audio is appended
    /// \returns true when audio waits for a missing packet
    bool take(MonotonicTime now, bool heard, std::vector<std::int16_t>& samples);

    /// Takes note of a sender report.
    void noteSenderReport(std::uint32_t ssrc, std::uint32_t compactNtp, MonotonicTime arrival);

    /// True when a source sends; `ssrc` names it.
    bool hasSource() const;
    std::uint32_t source() const;

    /// What the next receiver report says of the source. \see ReceptionStatistics::report
    ReceptionReport report(MonotonicTime now);

    TalkStatistics& statistics();

private:
    struct SenderReport
    {
        std::uint32_t ssrc;
        std::uint32_t compactNtp;
        MonotonicTime arrival;
    };

    void latch(std::uint32_t ssrc);
    void play(const ReorderWindow::Packet& packet, std::uint32_t lost, std::vector<std::int16_t>& samples);
    void conceal(std::uint32_t timestamp, std::vector<std::int16_t>& samples);
    std::uint32_t makeUp(std::uint32_t ticks, std::vector<std::int16_t>& samples);
    bool isEnough() const;

    const int payloadType_;
    const RtpClock clock_;
    const Duration silence_;
    const Duration maxOutputWait_;
    const std::unique_ptr<TalkDepayloader> depayloader_;
    const MakeDecoder makeDecoder_;
    std::unique_ptr<TalkDecoder> decoder_;  // null until a packet is to be heard
    std::vector<TalkDepayloader::Frame> frames_;

    ReorderWindow window_;
    ReceptionStatistics counted_;
    TalkStatistics statistics_;
    bool latched_ = false;
    std::uint32_t ssrc_ = 0;
    MonotonicTime lastArrival_;  // of the source's packets
    bool continues_ = false;     // nextTimestamp_ is what the next packet should have
    std::uint32_t nextTimestamp_ = 0;
    bool hole_ = false;                         // something before the next packet could not be played
    std::uint32_t made_ = 0;                    // ticks of audio that were made of packets in this turn
    std::optional<SenderReport> senderReport_;  // the newest
};

}  // namespace refhost

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

/// Counters of the packets of one talk-back session since its last PLAY.
struct TalkStatistics
{
    std::uint64_t packets = 0;        ///< RTP packets taken
    std::uint64_t malformed = 0;      ///< no RTP, or a payload that violates its format
    std::uint64_t wrongType = 0;      ///< another payload type than described
    std::uint64_t foreign = 0;        ///< another source while the first one sends
    std::uint64_t outOfSequence = 0;  ///< far from the expected sequence number
    std::uint64_t late = 0;           ///< after their turn
    std::uint64_t duplicates = 0;     ///< came twice
    std::uint64_t lost = 0;           ///< not received in time: concealed
    std::uint64_t stale = 0;          ///< waited too long for the output
    std::uint64_t overrun = 0;        ///< too many to take, or more audio than can be played
    std::uint64_t badRtcp = 0;        ///< malformed RTCP packets
};

/// The receiving side of one talk-back session: turns received packets into samples in order.
///
/// The first source is the session's; another one replaces it after TalkSettings::silence. The decoder exists
/// from the first audible packet until release(), because an AAC decoder takes more memory than the rest of a
/// session. Keeps at most the packets that ReorderWindow holds. Threads: one at a time.
class TalkReception
{
public:
    using MakeDecoder = std::function<std::unique_ptr<TalkDecoder>()>;

    /// \param track  of a codec that `depayloader` reads
    /// \param makeDecoder  called for an audible packet without a decoder; where it returns null, the packet
    ///                     counts as malformed
    TalkReception(const SubMediaInfo& track, const TalkSettings& settings,
                  std::unique_ptr<TalkDepayloader> depayloader, MakeDecoder makeDecoder);

    /// Starts again: the next packet is the first one.
    void reset();

    /// Destroys the decoder; the next audible packet makes another one.
    void release();

    /// Takes a received packet.
    /// \returns true when it is audio of the session's source
    bool add(const TalkReceiveQueue::Packet& packet);

    /// Decodes the packets that are in order now: at most 400 ms, where the last packet, if PCM, is decoded
    /// to its end. Anything beyond is dropped: no output takes it, and decoding it would keep the worker from
    /// other sessions.
    /// \param audible            false drops the audio instead of decoding it
    /// \param[in,out] samples  decoded and concealed audio is appended
    /// \returns true when audio waits for a missing packet
    bool take(MonotonicTime now, bool audible, std::vector<std::int16_t>& samples);

    /// Notes a sender report.
    void noteSenderReport(std::uint32_t ssrc, std::uint32_t compactNtp, MonotonicTime arrival);

    /// Whether a source was received; source() is its SSRC.
    bool hasSource() const;
    std::uint32_t source() const;

    /// Makes the next report on the source. \see ReceptionStatistics::report
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
    std::unique_ptr<TalkDecoder> decoder_;  // null until a packet is audible
    std::vector<TalkDepayloader::Frame> frames_;

    ReorderWindow window_;
    ReceptionStatistics counted_;
    TalkStatistics statistics_;
    bool latched_ = false;
    std::uint32_t ssrc_ = 0;
    MonotonicTime lastArrival_;  // of the source's packets
    bool continues_ = false;     // nextTimestamp_ is the next packet's, unless audio is missing
    std::uint32_t nextTimestamp_ = 0;
    bool hole_ = false;                         // audio before the next packet could not be played
    std::uint32_t made_ = 0;                    // ticks of audio produced in this turn
    std::optional<SenderReport> senderReport_;  // the newest
};

}  // namespace refhost

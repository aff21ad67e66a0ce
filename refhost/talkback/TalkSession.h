#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hostapi/audio/IMediaPlayer.h"
#include "hostapi/description/SubMediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "refhost/base/HostClock.h"
#include "refhost/rtp/RtcpWriter.h"
#include "refhost/rtp/RtpTransport.h"
#include "refhost/talkback/SharedOutput.h"
#include "refhost/talkback/TalkReceiveQueue.h"
#include "refhost/talkback/TalkReception.h"
#include "support/SafePointer.h"

namespace refhost
{

/// One talk-back session: the object behind an AudioDispatcher, whose operations have the same meaning here.
///
/// Threads: one at a time, which the talk-back manager ensures; packets may arrive on any thread meanwhile.
/// No operation waits.
class TalkSession
{
public:
    using MakeDecoder =
        std::function<std::unique_ptr<TalkDecoder>(const SubMediaInfo& track, const PcmFormat& format)>;

    /// \param player       where audio goes; may be an empty handle
    /// \param output, clock  outlive the session
    TalkSession(const SafePointer<IMediaPlayer>& player, SharedOutput& output, const HostClock& clock,
                MakeDecoder makeDecoder);
    ~TalkSession();
    TalkSession(const TalkSession&) = delete;
    TalkSession& operator=(const TalkSession&) = delete;

    /// \returns 0; hostTalkBackUnavailable without a player or for a codec that cannot be decoded;
    ///          hostTalkBackBusy when SharedOutput::admit() refuses the session
    int init(const SubMediaInfo& track);
    /// \returns 0, or hostConnectionUnusable for a connection not made by this host
    int connect(const SafePointer<IConnection>& connection);

    /// Starts receiving; earlier packets are not played.
    /// \returns 0, even if it plays already; hostTalkBackUnavailable before init(), hostConnectionUnusable
    ///          before connect() or when the connection is closed
    int play();
    /// \returns 0
    int pause();
    /// Sends BYE and ends for good. \returns 0
    int stop();
    bool isPlaying() const;
    int ssrc() const;

    /// \returns 0 when audio was played; audioDispatcherIdle when there was none; audioDispatcherAgain when
    ///          audio waits for a missing packet; statusPlayerUnusable with `playerFault` set when the output
    ///          failed; hostConnectionUnusable, for good, when the connection is closed
    int receive(bool& playerFault);
    /// \returns 0 when RTCP was received or sent; audioDispatcherIdle otherwise; hostTalkSenderLeft, for
    ///          good, when the client sent BYE
    int report();

    TalkStatistics statistics();

private:
    bool usable() const;
    bool takeReports();
    bool takeReport(const TalkReceiveQueue::Packet& packet);
    void sendReport(MonotonicTime now, bool bye);
    void setAudible(bool audible);
    void end();
    void takeLeave();

    SharedOutput& output_;
    const HostClock& clock_;
    const MakeDecoder makeDecoder_;
    const TalkSettings settings_;
    const std::shared_ptr<TalkReceiveQueue> receiveQueue_;
    std::optional<SafePointer<IMediaPlayer>> player_;
    std::optional<SafePointer<IConnection>> connection_;
    RtpTransport* transport_ = nullptr;  // owned by connection_
    std::string name_;
    std::unique_ptr<TalkReception> reception_;
    std::uint32_t ssrc_ = 0;
    RtcpWriter::Name cname_{};
    bool playing_ = false;
    bool audible_ = false;
    bool reported_ = false;
    bool left_ = false;  // the client sent BYE
    MonotonicTime nextReport_;
    TalkReceiveQueue::Packet packet_;
    std::vector<std::int16_t> samples_;
};

}  // namespace refhost

#include "refhost/talkback/TalkSession.h"

#include <utility>

#include "refhost/base/AuditLog.h"
#include "refhost/base/HostStatus.h"
#include "refhost/base/Log.h"
#include "refhost/base/RandomBytes.h"
#include "refhost/base/ServerFigures.h"
#include "refhost/rtp/RtcpReader.h"
#include "support/StatusCode.h"

namespace refhost
{
namespace
{

/// The receive queue's capacity: later packets wait for the next turn, so that no client keeps the worker
/// from the others.
constexpr int maxAtOnce = 64;

}  // namespace

TalkSession::TalkSession(const SafePointer<IMediaPlayer>& player, SharedOutput& output,
                         const HostClock& clock, MakeDecoder makeDecoder)
    : output_(output),
      clock_(clock),
      makeDecoder_(std::move(makeDecoder)),
      settings_(output.settings()),
      receiveQueue_(std::make_shared<TalkReceiveQueue>(clock)),
      cname_(RtcpWriter::randomName())
{
    fillRandom(&ssrc_, sizeof(ssrc_));
    // An empty handle cannot be copied.
    if (!player.isEmpty())
    {
        player_.emplace(player);
    }
}

TalkSession::~TalkSession()
{
    end();
}

int TalkSession::init(const SubMediaInfo& track)
{
    if (!player_ || track.clockRate <= 0)
    {
        return hostTalkBackUnavailable;
    }
    auto depayloader = TalkDepayloader::make(track);
    if (depayloader == nullptr || !TalkDecoder::supports(track))
    {
        Log::warning("talk-back: no decoder for {}", track.encodingName);
        return hostTalkBackUnavailable;
    }
    if (!output_.admit(this))
    {
        return hostTalkBackBusy;
    }
    reception_ =
        std::make_unique<TalkReception>(track, settings_, std::move(depayloader),
                                        [this, track] { return makeDecoder_(track, settings_.format); });
    return statusSuccess;
}

int TalkSession::connect(const SafePointer<IConnection>& connection)
{
    auto* const transport =
        connection.isEmpty() ? nullptr : dynamic_cast<RtpTransport*>(connection.operator->());
    if (transport == nullptr)
    {
        return hostConnectionUnusable;
    }
    if (transport_ != nullptr)
    {
        transport_->setListener({});
    }
    connection_.emplace(connection);
    transport_ = transport;
    name_ = transport->peerName();
    transport_->setListener(receiveQueue_);
    transport_->takeRtp();
    return statusSuccess;
}

bool TalkSession::usable() const
{
    return transport_ != nullptr && transport_->state() != SendStatus::closed;
}

int TalkSession::play()
{
    if (reception_ == nullptr)
    {
        return hostTalkBackUnavailable;
    }
    if (!usable())
    {
        return hostConnectionUnusable;
    }
    if (playing_)
    {
        return statusSuccess;
    }
    playing_ = true;
    ServerFigures::add(ServerFigures::instance().talkSessions);
    audible_ = false;
    reception_->reset();
    nextReport_ = clock_.now() + settings_.firstReport;
    receiveQueue_->open();
    return statusSuccess;
}

int TalkSession::pause()
{
    if (playing_)
    {
        playing_ = false;
        setAudible(false);
        ServerFigures::instance().talkSessions.fetch_sub(1, std::memory_order_relaxed);
        receiveQueue_->close();
        output_.pause(this);
        reception_->release();
    }
    return statusSuccess;
}

int TalkSession::stop()
{
    end();
    return statusSuccess;
}

void TalkSession::end()
{
    pause();
    if (reception_ != nullptr)
    {
        output_.leave(this);
    }
    if (transport_ != nullptr)
    {
        takeLeave();
        transport_->setListener({});
        transport_ = nullptr;
        connection_.reset();
    }
    reception_.reset();
}

void TalkSession::takeLeave()
{
    const TalkStatistics counted = statistics();
    Log::info("talk-back: {} ended; {} packets, {} lost, {} late, {} dropped", name_, counted.packets,
              counted.lost, counted.late,
              counted.malformed + counted.wrongType + counted.foreign + counted.outOfSequence +
                  counted.stale + counted.overrun + counted.badRtcp);
    if (reported_ && !left_ && usable())
    {
        sendReport(clock_.now(), true);
    }
}

bool TalkSession::isPlaying() const
{
    return playing_;
}

int TalkSession::ssrc() const
{
    return static_cast<int>(ssrc_);
}

int TalkSession::receive(bool& playerFault)
{
    if (!playing_)
    {
        return audioDispatcherIdle;
    }
    if (!usable())
    {
        return hostConnectionUnusable;
    }
    const MonotonicTime now = clock_.now();
    bool audio = false;
    for (int i = 0; i < maxAtOnce && receiveQueue_->takeRtp(packet_); ++i)
    {
        audio = reception_->add(packet_) || audio;
    }
    if (audio)
    {
        const std::string_view user =
            transport_->client == nullptr ? std::string_view() : transport_->client->user;
        setAudible(output_.claim(this, name_, now, user));
    }
    samples_.clear();
    const bool waits = reception_->take(now, audible_, samples_);
    IMediaPlayer& player = *(*player_).operator->();
    int result = samples_.empty() ? 0 : output_.play(this, samples_, player);
    if (result == statusSuccess)
    {
        result = output_.pump(player, now);
    }
    if (result != statusSuccess)
    {
        playerFault = true;
        return statusPlayerUnusable;
    }
    if (!samples_.empty())
    {
        return statusSuccess;
    }
    return waits ? audioDispatcherAgain : audioDispatcherIdle;
}

void TalkSession::setAudible(bool audible)
{
    if (std::exchange(audible_, audible) == audible || !transport_ || transport_->client == nullptr)
    {
        return;
    }
    const RtpTransport::Client& client = *transport_->client;
    if (audible)
    {
        AuditLog::talkBackTaken(client.address, client.user, client.url);
    }
    else
    {
        AuditLog::talkBackEnded(client.address, client.user, client.url);
    }
}

int TalkSession::report()
{
    if (!playing_)
    {
        return audioDispatcherIdle;
    }
    const bool came = takeReports();
    if (left_)
    {
        Log::info("talk-back: {} sent BYE", name_);
        return hostTalkSenderLeft;
    }
    const MonotonicTime now = clock_.now();
    if (now < nextReport_)
    {
        return came ? 0 : audioDispatcherIdle;
    }
    sendReport(now, false);
    nextReport_ = now + settings_.reportInterval;
    return statusSuccess;
}

/// \returns true when RTCP was received
bool TalkSession::takeReports()
{
    bool came = false;
    for (int i = 0; i < maxAtOnce && receiveQueue_->takeRtcp(packet_); ++i)
    {
        came = true;
        if (!takeReport(packet_))
        {
            ++reception_->statistics().badRtcp;
        }
    }
    return came;
}

bool TalkSession::takeReport(const TalkReceiveQueue::Packet& packet)
{
    RtcpFindings findings;
    if (!RtcpReader::read(packet.bytes.data(), packet.bytes.size(), ssrc_, findings))
    {
        return false;
    }
    if (findings.sent)
    {
        reception_->noteSenderReport(findings.reporter, findings.sentNtp, packet.arrival);
    }
    // Ignore a BYE of another source at the client's address.
    const bool fromSender = !reception_->hasSource() || findings.reporter == reception_->source();
    left_ = left_ || (findings.bye && fromSender);
    return true;
}

void TalkSession::sendReport(MonotonicTime now, bool bye)
{
    RtcpWriter::ReceiverReport report;
    report.ssrc = ssrc_;
    report.hasBlock = reception_->hasSource();
    if (report.hasBlock)
    {
        report.source = reception_->source();
        report.reception = reception_->report(now);
    }
    const RtcpWriter packet = RtcpWriter::ofReceiver(report, cname_, bye);
    transport_->sendRtcp(packet.data(), packet.size());
    reported_ = true;
}

TalkStatistics TalkSession::statistics()
{
    TalkStatistics counted = reception_ == nullptr ? TalkStatistics() : reception_->statistics();
    counted.overrun += receiveQueue_->overrun();
    return counted;
}

}  // namespace refhost

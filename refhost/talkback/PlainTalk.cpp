#include "refhost/talkback/PlainTalk.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <utility>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "refhost/base/Hex.h"
#include "refhost/base/HostClock.h"
#include "refhost/base/HostStatus.h"
#include "refhost/base/Mutex.h"
#include "refhost/base/RandomBytes.h"
#include "refhost/media/BackChannel.h"
#include "refhost/rtp/RtpTransport.h"
#include "refhost/talkback/SharedOutput.h"
#include "support/StatusCode.h"

namespace refhost
{
namespace
{

constexpr int packetSize = 1364;
const TransportTraits noTraits{};

/// Not to be guessed, and not that of a session of RTSP, which has no such prefix.
std::string makeSessionId()
{
    std::uint64_t number = 0;
    fillRandom(&number, sizeof number);
    std::string id = "plain-";
    appendHex64(id, number);
    return id;
}

void put32(std::uint8_t* at, std::uint32_t number)
{
    for (const unsigned shift : {24U, 16U, 8U, 0U})
    {
        *at++ = static_cast<std::uint8_t>(number >> shift);
    }
}

}  // namespace

/// The transport to the talk-back manager. The client sends no reports and gets none.
class PlainTalk::Transport final : public RtpTransport
{
public:
    Transport(std::string name, const PlainTalk::Client& talking)
        : RtpTransport(interleavedTcp, noTraits), name_(std::move(name))
    {
        client = std::make_shared<const RtpTransport::Client>(
            RtpTransport::Client{talking.address.key(), talking.user, talking.url});
    }

    void setListener(std::weak_ptr<TransportListener> listener) override
    {
        const MutexLock guard(mutex_);
        listener_ = std::move(listener);
    }

    std::shared_ptr<TransportListener> listener() const
    {
        const MutexLock guard(mutex_);
        return listener_.lock();
    }

    SendStatus state() const override
    {
        noticed_.store(true);
        return closed_.load() ? SendStatus::closed : SendStatus::sent;
    }

    SendResult send(const AccessUnitPtr&, std::size_t, const RtpHeaderFields&, bool) override
    {
        return {SendStatus::closed, 0};
    }

    /// Whether the session was looked at since the previous call.
    bool takeNotice()
    {
        return noticed_.exchange(false);
    }

    void sendRtcp(const std::uint8_t*, std::size_t) override {}

    std::string peerName() const override
    {
        return name_;
    }

    void hold() override {}
    void release() override {}

    void close() override
    {
        closed_.store(true);
    }

private:
    const std::string name_;
    std::atomic<bool> closed_{false};
    mutable std::atomic<bool> noticed_{false};
    mutable Mutex mutex_;
    std::weak_ptr<TransportListener> listener_ OV_GUARDED_BY(mutex_);
};

PlainTalk::PlainTalk(const Client& client)
    : PlainTalk(client.address.textWithPort() + " (page)",
                new Transport(client.address.textWithPort() + " (page)", client))
{
}

PlainTalk::PlainTalk(std::string name, Transport* transport)
    : sessionId_(makeSessionId()), name_(std::move(name)), connection_(transport), transport_(*transport)
{
    constexpr std::uint8_t version = 0x80;
    packet_[0] = version;
    packet_[1] = 0;  // PCMU
    fillRandom(&sequence_, sizeof sequence_);
    fillRandom(&timestamp_, sizeof timestamp_);
    fillRandom(&packet_[8], 4);
}

PlainTalk::~PlainTalk()
{
    transport_.close();
    OVAudioBackDispatcherMgr::getInstance()->stopAudio(sessionId_);
}

int PlainTalk::start()
{
    const SafePointer<OVAudioBackDispatcherMgr> manager = OVAudioBackDispatcherMgr::getInstance();
    if (!manager->isRunning())
    {
        return hostTalkBackUnavailable;
    }
    const SubMediaInfo track = *backChannelOf(Codec::pcmu);
    int status = manager->initSession(sessionId_, track.trackId, track, packetSize);
    if (status == statusSuccess)
    {
        status = manager->addSessionConnection(sessionId_, connection_);
    }
    if (status == statusSuccess)
    {
        status = manager->startAudio(sessionId_);
        transport_.takeNotice();  // that was not the worker
    }
    return status;
}

void PlainTalk::send(std::string_view audio)
{
    received_ = received_ || transport_.takeNotice();
    if (received_)
    {
        packetize(std::exchange(waiting_, {}));
        packetize(audio);
        return;
    }
    waiting_ += audio;
    waiting_.erase(0, waiting_.size() - std::min(waiting_.size(), maxWaiting));
}

void PlainTalk::packetize(std::string_view audio)
{
    while (!audio.empty())
    {
        const std::size_t count = std::min(audio.size(), packet_.size() - filled_);
        std::copy_n(audio.begin(), count, packet_.begin() + static_cast<std::ptrdiff_t>(filled_));
        filled_ += count;
        audio.remove_prefix(count);
        if (filled_ == packet_.size())
        {
            sendPacket();
        }
    }
}

void PlainTalk::sendPacket()
{
    packet_[2] = static_cast<std::uint8_t>(sequence_ >> 8U);
    packet_[3] = static_cast<std::uint8_t>(sequence_);
    put32(&packet_[4], timestamp_);
    ++sequence_;
    timestamp_ += packetBytes;
    filled_ = headerBytes;
    if (const auto listener = transport_.listener())
    {
        listener->onRtp(packet_.data(), packet_.size());
    }
}

bool PlainTalk::isOpen() const
{
    return transport_.listener() != nullptr;
}

PlainTalk::Floor PlainTalk::floor() const
{
    const SharedOutput::Floor floor = SharedOutput::instance().floor(HostClock::system().now());
    const bool own = floor.holder == name_;
    return {floor.shared || own, own ? "" : floor.user};
}

}  // namespace refhost

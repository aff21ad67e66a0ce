// Any RTP and RTCP, in any order and at any pace, into a talk-back session that plays.
//
// The first byte selects the codec. Records follow: a byte with the kind (0: time passes, 1: RTP, 2: RTCP, 3: RTP with a
// valid header that the record's bytes modify, others: the worker runs), a byte with the size, and that many bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "hostapi/audio/IMediaPlayer.h"
#include "refhost/base/HostStatus.h"
#include "refhost/base/Log.h"
#include "refhost/media/BackChannel.h"
#include "refhost/talkback/TalkDecoder.h"
#include "refhost/talkback/TalkSession.h"
#include "support/StatusCode.h"
#include "tests/refhost/rtp/RtpFakes.h"

namespace
{

using Bytes = std::vector<std::uint8_t>;

void require(bool condition, const char* what)
{
    if (!condition)
    {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

class CountingPlayer : public IMediaPlayer
{
public:
    explicit CountingPlayer(std::uint64_t& samples) : samples_(samples) {}

    void setDeviceInfo(const DeviceInfoEx&) override {}
    void setEncoderType(int) override {}

    int open() override
    {
        return 0;
    }

    int play(const std::uint8_t* samples, std::size_t bytes) override
    {
        require(samples != nullptr && bytes > 0 && bytes % 2 == 0, "whole samples are played");
        samples_ += bytes / 2;
        return 0;
    }

    void close() override {}

private:
    std::uint64_t& samples_;
};

/// A session with its client, driven by the records.
class Scene
{
public:
    explicit Scene(unsigned codec)
        : track_(*refhost::backChannelOf(codec % 4 == 0   ? refhost::Codec::pcmu
                                         : codec % 4 == 1 ? refhost::Codec::pcma
                                         : codec % 4 == 2 ? refhost::Codec::aac
                                                          : refhost::Codec::opus)),
          wire_(std::make_shared<refhost::test::Wire>()),
          session_(SafePointer<IMediaPlayer>(new CountingPlayer(samples_)), output_, clock_,
                   refhost::TalkDecoder::make)
    {
        require(session_.init(track_) == 0, "the codec is known");
        const SafePointer<IConnection> connection(new refhost::test::FakeTransport(wire_));
        require(session_.connect(connection) == 0 && session_.play() == 0, "the session plays");
    }

    /// \returns false when the session has ended
    bool run(unsigned what, const std::uint8_t* data, std::size_t size)
    {
        switch (what)
        {
            case 0:
                clock_.advance(std::chrono::milliseconds(size == 0 ? 1 : data[0]));
                return true;
            case 1:
                return rtp(Bytes(data, data + size));
            case 2:
                wire_->listener.lock()->onRtcp(data, size);
                return true;
            case 3:
                return rtp(nearlyRight(data, size));
            default:
                return turn();
        }
    }

    bool turn()
    {
        bool fault = false;
        const std::uint64_t before = samples_;
        const int media = session_.receive(fault);
        require(!fault, "the output did not fail");
        require(media == 0 || media == audioDispatcherIdle || media == audioDispatcherAgain,
                "reception goes on");
        const int reports = session_.report();
        require(reports == 0 || reports == audioDispatcherIdle || reports == refhost::hostTalkSenderLeft,
                "reports go on or the client left");
        // Two fifths of a second, the packet that exceeds them, and a fifth of concealment.
        require(samples_ - before <= 48000, "a turn makes no more audio than an output takes");
        check();
        return reports != refhost::hostTalkSenderLeft;
    }

private:
    bool rtp(const Bytes& packet)
    {
        ++brought_;
        wire_->listener.lock()->onRtp(packet.data(), packet.size());
        return true;
    }

    /// Payload type, sequence and source are right; the record's first byte moves the sequence a little.
    Bytes nearlyRight(const std::uint8_t* data, std::size_t size)
    {
        const unsigned step = size == 0 ? 1 : data[0] % 8;
        sequence_ = static_cast<std::uint16_t>(sequence_ + step);
        const std::uint32_t timestamp = sequence_ * 160U;
        Bytes packet = {0x80, static_cast<std::uint8_t>(track_.payloadType),
                        static_cast<std::uint8_t>(sequence_ >> 8U), static_cast<std::uint8_t>(sequence_)};
        for (const unsigned shift : {24U, 16U, 8U, 0U})
        {
            packet.push_back(static_cast<std::uint8_t>(timestamp >> shift));
        }
        packet.insert(packet.end(), {1, 2, 3, 4});
        packet.insert(packet.end(), data + std::min<std::size_t>(size, 1), data + size);
        return packet;
    }

    void check()
    {
        const refhost::TalkStatistics counted = session_.statistics();
        // A malformed payload was already counted as a packet, so it may count twice.
        const std::uint64_t known = counted.packets + counted.wrongType + counted.foreign +
                                    counted.outOfSequence + counted.overrun + counted.malformed;
        require(known >= brought_, "every packet is counted");
        require(counted.packets <= brought_, "no packet is counted that did not come");
        require(counted.late + counted.duplicates + counted.stale <= counted.packets,
                "what is not played came");
        for (const Bytes& report : wire_->rtcp)
        {
            refhost::RtcpFindings findings;
            require(refhost::RtcpReader::read(report.data(), report.size(), 0x01020304, findings),
                    "our reports are well-formed");
        }
    }

    const SubMediaInfo track_;
    const std::shared_ptr<refhost::test::Wire> wire_;
    refhost::test::ManualClock clock_;
    refhost::SharedOutput output_{refhost::TalkSettings()};
    std::uint64_t samples_ = 0;
    std::uint64_t brought_ = 0;
    std::uint16_t sequence_ = 0;
    refhost::TalkSession session_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    refhost::Log::setLevel(refhost::Log::Level::off);
    if (size == 0)
    {
        return 0;
    }
    Scene scene(data[0]);
    std::size_t at = 1;
    bool goesOn = true;
    while (goesOn && size - at >= 2)
    {
        const unsigned what = data[at];
        const std::size_t length = std::min<std::size_t>(data[at + 1], size - at - 2);
        goesOn = scene.run(what, data + at + 2, length);
        at += 2 + length;
    }
    if (goesOn)
    {
        scene.turn();
    }
    return 0;
}

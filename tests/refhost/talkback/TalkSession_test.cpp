#include "refhost/talkback/TalkSession.h"

#include <gtest/gtest.h>

#include "refhost/base/HostStatus.h"
#include "support/StatusCode.h"
#include "tests/refhost/rtp/RtpFakes.h"
#include "tests/refhost/talkback/TalkFakes.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr std::uint32_t senderSsrc = 0x01020304;

class WatchedDecoder : public FakeDecoder
{
public:
    using FakeDecoder::FakeDecoder;
    const std::shared_ptr<int> life = std::make_shared<int>();
};

/// One session with its client's wire.
class Talk
{
public:
    Talk(SharedOutput& output, const HostClock& clock, const SafePointer<IMediaPlayer>& player)
        : calls(std::make_shared<std::vector<Decoded>>()),
          wire(std::make_shared<Wire>()),
          session(player, output, clock,
                  [made = calls, decoder = decoder](const SubMediaInfo&, const PcmFormat&)
                  {
                      auto fake = std::make_unique<WatchedDecoder>(made);
                      *decoder = fake->life;
                      return fake;
                  })
    {
    }

    int prepare()
    {
        const int status = session.init(*backChannelOf(Codec::pcmu));
        return status != 0 ? status : session.connect(SafePointer<IConnection>(new FakeTransport(wire)));
    }

    void bring(std::uint16_t number)
    {
        RtpPacket packet;
        packet.sequence = number;
        packet.timestamp = number * 160U;
        packet.payload[0] = static_cast<std::uint8_t>(number);
        const Bytes bytes = packet.bytes();
        wire->listener.lock()->onRtp(bytes.data(), bytes.size());
    }

    void bringRtcp(const RtcpWriter& packet)
    {
        wire->listener.lock()->onRtcp(packet.data(), packet.size());
    }

    std::size_t reports()
    {
        return wire->rtcp.size();
    }

    RtcpFindings lastReport()
    {
        RtcpFindings findings;
        EXPECT_TRUE(
            RtcpReader::read(wire->rtcp.back().data(), wire->rtcp.back().size(), senderSsrc, findings));
        return findings;
    }

    bool hasDecoder() const
    {
        return !decoder->expired();
    }

    const std::shared_ptr<std::vector<Decoded>> calls;
    const std::shared_ptr<std::weak_ptr<int>> decoder = std::make_shared<std::weak_ptr<int>>();
    const std::shared_ptr<Wire> wire;
    TalkSession session;
};

RtcpWriter senderReport(std::uint32_t ssrc, std::int64_t wallNs, bool bye)
{
    return RtcpWriter({ssrc, WallTime(Duration(wallNs)), 0, 0, 0}, RtcpWriter::randomName(), bye);
}

class TalkSessionTest : public testing::Test
{
protected:
    TalkSessionTest() : player_(new FakePlayer), handle(std::make_unique<SafePointer<IMediaPlayer>>(player_))
    {
    }

    std::unique_ptr<Talk> makeTalk()
    {
        return std::make_unique<Talk>(output, clock, *handle);
    }

    std::unique_ptr<Talk> playingTalk()
    {
        auto talk = makeTalk();
        EXPECT_EQ(0, talk->prepare());
        EXPECT_EQ(0, talk->session.play());
        return talk;
    }

    FakePlayer* player_;
    const std::unique_ptr<SafePointer<IMediaPlayer>> handle;  // its destructor may throw
    ManualClock clock;
    SharedOutput output{TalkSettings()};
    bool fault = false;
};

TEST_F(TalkSessionTest, AudioOfAClientIsPlayed)
{
    const auto talk = playingTalk();
    EXPECT_EQ(audioDispatcherIdle, talk->session.receive(fault));
    talk->bring(1);
    talk->bring(2);
    EXPECT_EQ(0, talk->session.receive(fault));
    EXPECT_EQ((std::vector<std::int16_t>{1, 2}), player_->played);
    EXPECT_EQ(audioDispatcherIdle, talk->session.receive(fault));
    EXPECT_FALSE(fault);
}

TEST_F(TalkSessionTest, AudioWaitingForAMissingPacketRequestsAnotherTurn)
{
    const auto talk = playingTalk();
    talk->bring(1);
    talk->session.receive(fault);
    talk->bring(3);
    EXPECT_EQ(audioDispatcherAgain, talk->session.receive(fault));
    clock.advance(std::chrono::milliseconds(40));
    EXPECT_EQ(0, talk->session.receive(fault));
    EXPECT_EQ((std::vector<std::int16_t>{1, -1, 3}), player_->played);
}

TEST_F(TalkSessionTest, DecoderExistsFromTheFirstAudiblePacketUntilThePause)
{
    const auto speaker = playingTalk();
    const auto other = playingTalk();
    EXPECT_FALSE(speaker->hasDecoder());
    speaker->bring(1);
    speaker->session.receive(fault);
    EXPECT_TRUE(speaker->hasDecoder());
    other->bring(1);
    other->session.receive(fault);
    EXPECT_FALSE(other->hasDecoder()) << "it does not have the output";
    speaker->session.pause();
    EXPECT_FALSE(speaker->hasDecoder());
    other->bring(2);
    EXPECT_EQ(0, other->session.receive(fault));
    EXPECT_TRUE(other->hasDecoder());
}

TEST_F(TalkSessionTest, PacketsWithoutADecoderCountAsMalformed)
{
    TalkSession deaf(*handle, output, clock,
                     [](const SubMediaInfo&, const PcmFormat&) { return std::unique_ptr<TalkDecoder>(); });
    ASSERT_EQ(0, deaf.init(*backChannelOf(Codec::pcmu)));
    const auto wire = std::make_shared<Wire>();
    ASSERT_EQ(0, deaf.connect(SafePointer<IConnection>(new FakeTransport(wire))));
    ASSERT_EQ(0, deaf.play());
    const Bytes bytes = RtpPacket().bytes();
    wire->listener.lock()->onRtp(bytes.data(), bytes.size());
    EXPECT_EQ(audioDispatcherIdle, deaf.receive(fault));
    EXPECT_EQ(1u, deaf.statistics().malformed);
    EXPECT_TRUE(player_->played.empty());
}

TEST_F(TalkSessionTest, NothingIsTakenBeforePlayAndAfterPause)
{
    const auto talk = makeTalk();
    ASSERT_EQ(0, talk->prepare());
    talk->bring(1);
    EXPECT_EQ(audioDispatcherIdle, talk->session.receive(fault));
    EXPECT_EQ(audioDispatcherIdle, talk->session.report());
    talk->session.play();
    EXPECT_EQ(audioDispatcherIdle, talk->session.receive(fault));
    talk->bring(2);
    talk->session.pause();
    talk->bring(3);
    talk->session.play();
    EXPECT_EQ(audioDispatcherIdle, talk->session.receive(fault));
    EXPECT_TRUE(player_->played.empty());
}

TEST_F(TalkSessionTest, FailedOutputIsAFaultButDoesNotEndTheSession)
{
    const auto talk = playingTalk();
    player_->result = -5;
    talk->bring(1);
    EXPECT_EQ(statusPlayerUnusable, talk->session.receive(fault));
    EXPECT_TRUE(fault);
    player_->result = 0;
    fault = false;
    talk->bring(2);
    EXPECT_EQ(0, talk->session.receive(fault));
    EXPECT_FALSE(fault);
}

TEST_F(TalkSessionTest, AClosedConnectionEndsTheSession)
{
    const auto talk = playingTalk();
    talk->wire->status = SendStatus::closed;
    EXPECT_EQ(hostConnectionUnusable, talk->session.receive(fault));
    EXPECT_FALSE(fault);
}

TEST_F(TalkSessionTest, PlayNeedsATrackAndAnOpenConnection)
{
    const auto talk = makeTalk();
    EXPECT_EQ(hostTalkBackUnavailable, talk->session.play());
    EXPECT_EQ(0, talk->session.init(*backChannelOf(Codec::pcmu)));
    EXPECT_EQ(hostConnectionUnusable, talk->session.play());
    EXPECT_FALSE(talk->session.isPlaying());
    EXPECT_EQ(hostConnectionUnusable, talk->session.connect(SafePointer<IConnection>()));
    EXPECT_EQ(0, talk->session.connect(SafePointer<IConnection>(new FakeTransport(talk->wire))));
    talk->wire->status = SendStatus::closed;
    EXPECT_EQ(hostConnectionUnusable, talk->session.play());
    talk->wire->status = SendStatus::held;
    EXPECT_EQ(0, talk->session.play());
    EXPECT_TRUE(talk->session.isPlaying());
}

TEST_F(TalkSessionTest, WithoutPlayerOrDecoderASessionIsRefused)
{
    Talk mute(output, clock, SafePointer<IMediaPlayer>());
    EXPECT_EQ(hostTalkBackUnavailable, mute.prepare());
    SubMediaInfo track = *backChannelOf(Codec::pcmu);
    track.channels = 0;
    EXPECT_EQ(hostTalkBackUnavailable, makeTalk()->session.init(track));
    track.channels = 1;
    track.clockRate = 0;
    EXPECT_EQ(hostTalkBackUnavailable, makeTalk()->session.init(track));
}

TEST_F(TalkSessionTest, OneTalkSenderIsAudibleAndTheOtherNotDecoded)
{
    const auto anna = playingTalk();
    const auto bert = playingTalk();
    anna->bring(1);
    anna->session.receive(fault);
    bert->bring(51);
    EXPECT_EQ(audioDispatcherIdle, bert->session.receive(fault));
    EXPECT_TRUE(bert->calls->empty());
    EXPECT_EQ((std::vector<std::int16_t>{1}), player_->played);
    anna->session.pause();
    bert->bring(52);
    EXPECT_EQ(0, bert->session.receive(fault));
    EXPECT_EQ((std::vector<std::int16_t>{1, 52}), player_->played);
}

TEST_F(TalkSessionTest, RefusedUntilTheOtherSessionEnds)
{
    TalkSettings settings;
    settings.policy = TalkPolicy::refuse;
    output.configure(settings);
    auto anna = makeTalk();
    EXPECT_EQ(0, anna->prepare());
    EXPECT_EQ(hostTalkBackBusy, makeTalk()->prepare());
    EXPECT_EQ(hostTalkBackBusy, makeTalk()->prepare());
    anna.reset();
    EXPECT_EQ(0, makeTalk()->prepare());
}

TEST_F(TalkSessionTest, ReceiverReportsHaveLossJitterAndTheSendersReport)
{
    const auto talk = playingTalk();
    for (std::uint16_t number = 100; number < 120; ++number)
    {
        if (number != 105 && number != 106 && number != 110)
        {
            talk->bring(number);
            talk->session.receive(fault);
        }
        clock.advance(std::chrono::milliseconds(20));
    }
    talk->bringRtcp(senderReport(senderSsrc, 1'500'000'000, false));
    EXPECT_EQ(0, talk->session.report());
    EXPECT_EQ(0U, talk->reports());
    clock.advance(std::chrono::milliseconds(600));
    EXPECT_EQ(0, talk->session.report());
    ASSERT_EQ(1U, talk->reports());
    RtcpFindings sent = talk->lastReport();
    ASSERT_TRUE(sent.reported);
    EXPECT_EQ(static_cast<std::uint32_t>(talk->session.ssrc()), sent.reporter);
    EXPECT_EQ(3, sent.report.cumulativeLost);
    EXPECT_EQ(3 * 256 / 20, sent.report.fractionLost);
    EXPECT_EQ(119U, sent.report.highestSequence);
    EXPECT_EQ(0U, sent.report.jitter);
    EXPECT_EQ(NtpTime(WallTime(std::chrono::milliseconds(1500))).compact(), sent.report.lastReport);
    EXPECT_EQ(600U * 65536 / 1000, sent.report.delaySinceReport);
    EXPECT_EQ(audioDispatcherIdle, talk->session.report());
    clock.advance(std::chrono::milliseconds(4999));
    EXPECT_EQ(audioDispatcherIdle, talk->session.report());
    clock.advance(std::chrono::milliseconds(1));
    EXPECT_EQ(0, talk->session.report());
    EXPECT_EQ(0, talk->lastReport().report.fractionLost);
    EXPECT_EQ(3, talk->lastReport().report.cumulativeLost);
}

TEST_F(TalkSessionTest, AClientThatSendsNothingIsReportedOnWithoutABlock)
{
    const auto talk = playingTalk();
    clock.advance(std::chrono::milliseconds(1000));
    EXPECT_EQ(0, talk->session.report());
    EXPECT_FALSE(talk->lastReport().reported);
}

TEST_F(TalkSessionTest, ByeOfTheTalkSenderEndsTheSession)
{
    const auto talk = playingTalk();
    talk->bring(1);
    talk->session.receive(fault);
    talk->bringRtcp(senderReport(0x99, 0, true));
    EXPECT_EQ(0, talk->session.report()) << "somebody else left";
    clock.advance(std::chrono::milliseconds(1000));
    talk->session.report();
    EXPECT_EQ(1U, talk->reports());
    talk->bringRtcp(senderReport(senderSsrc, 0, true));
    EXPECT_EQ(hostTalkSenderLeft, talk->session.report());
    talk->session.stop();
    EXPECT_EQ(1U, talk->reports()) << "who has left hears nothing more";
}

TEST_F(TalkSessionTest, MalformedRtcpIsCountedAndEndsNothing)
{
    const auto talk = playingTalk();
    for (const Bytes& bad : {Bytes{}, Bytes{1, 2, 3}, Bytes{0x81, 203, 0, 1, 1, 2, 3, 4}})
    {
        talk->wire->listener.lock()->onRtcp(bad.data(), bad.size());
    }
    EXPECT_EQ(0, talk->session.report());
    EXPECT_EQ(3U, talk->session.statistics().badRtcp);
}

TEST_F(TalkSessionTest, EndLogsTheDroppedPackets)
{
    const auto talk = playingTalk();
    talk->bring(1);
    talk->session.receive(fault);
    const Bytes bad = {1, 2, 3};
    const Bytes tooLong(5000);
    talk->wire->listener.lock()->onRtp(bad.data(), bad.size());
    talk->wire->listener.lock()->onRtp(tooLong.data(), tooLong.size());
    talk->wire->listener.lock()->onRtcp(bad.data(), bad.size());
    talk->session.receive(fault);
    talk->session.report();
    testing::internal::CaptureStderr();
    talk->session.stop();
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, text.find("ended; 1 packets, 0 lost, 0 late, 3 dropped")) << text;
}

TEST_F(TalkSessionTest, EndSendsByeOnceAndReleasesTheConnection)
{
    auto talk = playingTalk();
    const auto wire = talk->wire;
    clock.advance(std::chrono::milliseconds(1000));
    talk->session.report();
    talk->session.stop();
    EXPECT_FALSE(talk->session.isPlaying());
    ASSERT_EQ(2U, wire->rtcp.size());
    EXPECT_TRUE(talk->lastReport().bye);
    EXPECT_TRUE(wire->listener.expired());
    EXPECT_NE(0, talk->session.play());
    talk.reset();
    EXPECT_EQ(2U, wire->rtcp.size());
}

TEST_F(TalkSessionTest, PlayAgainStartsANewReception)
{
    const auto talk = playingTalk();
    talk->bring(1);
    talk->session.receive(fault);
    EXPECT_EQ(0, talk->session.play()) << "it plays already";
    EXPECT_EQ(1U, talk->session.statistics().packets);
    talk->session.pause();
    talk->session.play();
    EXPECT_EQ(0U, talk->session.statistics().packets);
    talk->bring(30000);
    EXPECT_EQ(0, talk->session.receive(fault));
    EXPECT_EQ(0U, talk->session.statistics().lost);
}

}  // namespace
}  // namespace test
}  // namespace refhost

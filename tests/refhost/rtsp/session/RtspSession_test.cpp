#include "refhost/rtsp/session/RtspSession.h"

#include <gtest/gtest.h>

#include "refhost/base/HostStatus.h"
#include "refhost/rtsp/session/SessionTable.h"
#include "tests/refhost/base/Instants.h"
#include "tests/refhost/rtsp/session/FakeControllers.h"
#include "tests/refhost/rtsp/session/FakeRecording.h"

namespace refhost
{
namespace
{

using test::atMs;
using test::ControllerScript;
using test::FakeController;
using test::Wire;

constexpr SocketAddress::Key here{1};
constexpr std::uint64_t connection = 7;
const MediaRoutes::Route anyRoute;

class RtspSessionTest : public testing::Test
{
protected:
    ~RtspSessionTest() noexcept override
    {
        session_.reset();
        table_.reset();
        EXPECT_EQ(script_->living, 0);
    }

    std::shared_ptr<RtspSession> make()
    {
        route_.firstPacket = [](const std::string&, const std::string& trackId, RTPPacketInfo& out)
        {
            out.sequenceNumber = trackId == "trackID=0" ? 10 : 20;
            return trackId != "trackID=talk";
        };
        return table_->create("orv/live/1/0", SafePointer<IRTSPController>(new FakeController(script_)),
                              route_, here, atMs(0));
    }

    RtspStatus setup(const std::string& trackId, std::uint64_t connectionOfTrack = 0)
    {
        return session_->setup(
            trackId,
            [&](RtspSession::Delivery& out)
            {
                wires_[trackId] = std::make_shared<Wire>();
                out.transport.emplace(SafePointer<RtpTransport>(
                    SafePointer<test::FakeTransport>(new test::FakeTransport(wires_[trackId]))));
                out.connection = connectionOfTrack;
                return rtspOk;
            },
            ssrc_);
    }

    RtspStatus play(const std::string& trackId = "")
    {
        bool notReady = false;
        const RtspStatus status = session_->play(
            trackId, PlayRequest(), {}, [this](const auto& played) { answered(played); }, notReady);
        EXPECT_FALSE(notReady);
        return status;
    }

    /// \param ms  milliseconds of the clock; sessions live for 60 s, and for 10 s without their connection
    bool expiredAt(std::int64_t ms) const
    {
        return session_->expired(atMs(ms), std::chrono::seconds(60), std::chrono::seconds(10));
    }

    void answered(const RtspSession::Played& played)
    {
        ++answers_;
        played_ = played.tracks.size();
        for (const auto& [track, wire] : wires_)
        {
            heldAtAnswer_ += wire->status == SendStatus::held ? 1 : 0;
        }
    }

    std::shared_ptr<ControllerScript> script_ = std::make_shared<ControllerScript>();
    MediaRoutes::Route route_;
    std::unique_ptr<SessionTable> table_ = std::make_unique<SessionTable>(LimitsConfig());
    std::shared_ptr<RtspSession> session_ = make();
    std::map<std::string, std::shared_ptr<Wire>> wires_;
    std::uint32_t ssrc_ = 0;
    int answers_ = 0;
    int heldAtAnswer_ = 0;
    std::size_t played_ = 0;
};

TEST_F(RtspSessionTest, SetupGivesTheSsrcOfTheController)
{
    EXPECT_EQ(setup("trackID=0"), rtspOk);
    EXPECT_EQ(ssrc_, 0xFEDCBA98u);
    EXPECT_EQ(session_->trackCount(), 1u);
}

TEST_F(RtspSessionTest, PlayHoldsEveryTrackUntilTheAnswerIsOut)
{
    setup("trackID=0");
    setup("trackID=1");
    EXPECT_EQ(play(), rtspOk);
    EXPECT_EQ(answers_, 1);
    EXPECT_EQ(played_, 2u);
    EXPECT_EQ(heldAtAnswer_, 2);
    EXPECT_EQ(wires_["trackID=0"]->status, SendStatus::sent);
    EXPECT_EQ(wires_["trackID=1"]->status, SendStatus::sent);
}

TEST_F(RtspSessionTest, SetupOfNoTrackMeansTheOnlyOneThatTheDeviceSends)
{
    script_->talkBack = true;
    EXPECT_EQ(setup(""), rtspAggregateNotAllowed);
    script_->audio = false;
    EXPECT_EQ(setup(""), rtspOk);
    EXPECT_EQ(script_->countOf("setup trackID=0"), 1);
}

TEST_F(RtspSessionTest, RtpInfoLeavesTheBackChannelOut)
{
    script_->talkBack = true;
    setup("trackID=0");
    setup("trackID=talk");
    EXPECT_EQ(play(), rtspOk);
    EXPECT_EQ(script_->countOf("play trackID=talk"), 1);
    EXPECT_EQ(played_, 1u);
    EXPECT_EQ(play("trackID=talk"), rtspOk);
    EXPECT_EQ(played_, 0u);
}

TEST_F(RtspSessionTest, TalkBackThatEndedByItselfDoesNotDisturbTheOthers)
{
    script_->talkBack = true;
    setup("trackID=0");
    setup("trackID=talk");
    EXPECT_EQ(play(), rtspOk);
    script_->results["pause trackID=talk"] = -6;
    EXPECT_EQ(session_->pause(""), rtspOk);
    script_->results["play trackID=talk"] = -6;
    EXPECT_EQ(play(), rtspOk);
    EXPECT_EQ(play("trackID=talk"), rtspInvalidState);
    script_->results["play trackID=0"] = -6;
    EXPECT_EQ(play(), rtspInvalidState) << "a track that the device sends is no such exception";
    bool empty = false;
    EXPECT_EQ(session_->teardown("", empty), rtspOk);
    EXPECT_EQ(script_->countOf("stop trackID=talk"), 1);
}

TEST_F(RtspSessionTest, FailedPlayPausesWhatItStartedAndReleasesTheTransports)
{
    setup("trackID=0");
    setup("trackID=1");
    script_->failAt = script_->count + 2;
    EXPECT_EQ(play(), rtspInternalError);
    EXPECT_EQ(answers_, 0);
    EXPECT_EQ(script_->countOf("pause trackID=0"), 1);
    EXPECT_EQ(script_->countOf("pause trackID=1"), 0);
    EXPECT_EQ(wires_["trackID=0"]->status, SendStatus::sent);
    EXPECT_EQ(session_->pause(""), rtspInvalidState) << "nothing was played";
    EXPECT_EQ(play(), rtspOk);
}

TEST_F(RtspSessionTest, AFailedSetupStopsTheTrackAndKeepsTheOthers)
{
    setup("trackID=0");
    script_->results["setup"] = -8;
    EXPECT_EQ(setup("trackID=1"), rtspNotFound);
    EXPECT_EQ(script_->countOf("stop trackID=1"), 1);
    EXPECT_EQ(wires_["trackID=1"]->status, SendStatus::closed);
    EXPECT_EQ(session_->trackCount(), 1u);
    EXPECT_EQ(play(), rtspOk);
}

TEST_F(RtspSessionTest, SettingUpATrackAgainStopsItsFormerTransport)
{
    setup("trackID=0");
    const std::shared_ptr<Wire> former = wires_["trackID=0"];
    EXPECT_EQ(setup("trackID=0"), rtspOk);
    EXPECT_EQ(former->status, SendStatus::closed);
    EXPECT_EQ(script_->countOf("stop trackID=0"), 1);
    EXPECT_EQ(session_->trackCount(), 1u);
}

TEST_F(RtspSessionTest, EndStopsEveryTrackOnceAndClosesItsTransport)
{
    setup("trackID=0");
    setup("trackID=1");
    play();
    table_->end(session_);
    table_->end(session_);
    session_->end();
    EXPECT_EQ(script_->countOf("stop trackID=0"), 1);
    EXPECT_EQ(script_->countOf("stop trackID=1"), 1);
    EXPECT_EQ(wires_["trackID=0"]->status, SendStatus::closed);
    EXPECT_EQ(script_->living, 0);
    EXPECT_EQ(table_->count(), 0u);
}

TEST_F(RtspSessionTest, EndGoesOnWhenAStopThrows)
{
    setup("trackID=0");
    setup("trackID=1");
    script_->throwAt = script_->count + 1;
    table_->end(session_);
    EXPECT_EQ(script_->countOf("stop trackID=1"), 1);
    EXPECT_EQ(wires_["trackID=0"]->status, SendStatus::closed);
    EXPECT_EQ(wires_["trackID=1"]->status, SendStatus::closed);
    EXPECT_EQ(script_->living, 0);
}

TEST_F(RtspSessionTest, AnEndedSessionAnswersNothingAnyMore)
{
    setup("trackID=0");
    table_->end(session_);
    bool empty = false;
    EXPECT_EQ(setup("trackID=0"), rtspSessionNotFound);
    EXPECT_EQ(play(), rtspSessionNotFound);
    EXPECT_EQ(session_->pause(""), rtspSessionNotFound);
    EXPECT_EQ(session_->teardown("", empty), rtspSessionNotFound);
    EXPECT_FALSE(empty);
}

TEST_F(RtspSessionTest, TeardownStopsTheNamedTrack)
{
    setup("trackID=0");
    setup("trackID=1");
    bool empty = true;
    EXPECT_EQ(session_->teardown("trackID=0", empty), rtspOk);
    EXPECT_FALSE(empty);
    EXPECT_EQ(script_->countOf("stop trackID=0"), 1);
    EXPECT_EQ(session_->teardown("", empty), rtspOk);
    EXPECT_TRUE(empty);
    EXPECT_EQ(script_->countOf("stop trackID=1"), 1);
}

TEST_F(RtspSessionTest, EveryTrackIsStoppedOnceWhicheverCallFails)
{
    for (int call = 1; call <= 8; ++call)
    {
        script_ = std::make_shared<ControllerScript>();
        session_ = make();
        script_->failAt = call;
        setup("trackID=0");
        setup("trackID=1");
        play();
        session_->pause("");
        table_->end(session_);
        for (const char* const track : {"trackID=0", "trackID=1"})
        {
            EXPECT_EQ(script_->countOf(std::string("setup ") + track), 1);
            EXPECT_EQ(script_->countOf(std::string("stop ") + track), 1) << "call " << call << " failed";
        }
        EXPECT_EQ(script_->living, 0);
    }
}

TEST_F(RtspSessionTest, ExpiresWithoutActivityForTheTimeout)
{
    session_->noteRequest(connection, atMs(1000));
    EXPECT_FALSE(expiredAt(60999));
    EXPECT_TRUE(expiredAt(61000));
    session_->liveness()->noteActivity(atMs(61000));
    EXPECT_FALSE(expiredAt(61000));
}

TEST_F(RtspSessionTest, OrphanExpiresSoonerUnlessActiveAgain)
{
    setup("trackID=0");
    session_->noteRequest(connection, atMs(1000));
    EXPECT_FALSE(session_->connectionEnded(connection, atMs(2000)));
    session_->liveness()->noteActivity(atMs(2500));  // was under way
    EXPECT_FALSE(expiredAt(11999));
    EXPECT_TRUE(expiredAt(12000));
    session_->liveness()->noteActivity(atMs(11000));
    EXPECT_FALSE(expiredAt(12000));
    EXPECT_TRUE(expiredAt(71000));
}

TEST_F(RtspSessionTest, AnotherConnectionAdoptsIt)
{
    setup("trackID=0");
    session_->noteRequest(connection, atMs(1000));
    session_->noteRequest(connection + 1, atMs(1500));
    EXPECT_FALSE(session_->connectionEnded(connection, atMs(2000)));
    EXPECT_FALSE(expiredAt(20000));
}

TEST_F(RtspSessionTest, EndsWithTheConnectionThatATrackIsInterleavedIn)
{
    setup("trackID=0", connection);
    EXPECT_FALSE(session_->connectionEnded(connection + 1, atMs(2000)));
    EXPECT_TRUE(session_->connectionEnded(connection, atMs(2000)));
}

TEST_F(RtspSessionTest, AnsweringConnectionKeepsThePlayedSessionAlive)
{
    setup("trackID=0", connection);
    session_->connectionAnswered(connection, atMs(50000));
    EXPECT_TRUE(expiredAt(60000)) << "nothing was played";
    play();
    session_->connectionAnswered(connection + 1, atMs(50000));
    EXPECT_TRUE(expiredAt(60000)) << "not its connection";
    session_->connectionAnswered(connection, atMs(50000));
    EXPECT_FALSE(expiredAt(60000));
    EXPECT_EQ(session_->pause(""), rtspOk);
    session_->connectionAnswered(connection, atMs(40000));
    EXPECT_FALSE(expiredAt(109999)) << "what is known counts when older news comes";
    session_->connectionAnswered(connection, atMs(60000));
    EXPECT_FALSE(expiredAt(119999)) << "a pause changes nothing";
    EXPECT_TRUE(expiredAt(120000));
}

class RecordedSessionTest : public RtspSessionTest
{
protected:
    void SetUp() override
    {
        recordings_.recorded = true;
        session_ = table_->create("orv/playback/1_1700000000_1700000060",
                                  SafePointer<IRTSPController>(new test::FakeRecording(recording_)),
                                  recordings_, here, atMs(0));
        setup("trackID=0");
        setup("trackID=1");
    }

    ~RecordedSessionTest() noexcept override
    {
        session_.reset();
        table_.reset();
        EXPECT_EQ(recording_->living, 0);
    }

    RtspStatus attempt(RtspSession::Attempt which)
    {
        notReady_ = false;
        return session_->play(
            "", PlayRequest(), which, [this](const auto& played) { answered(played); }, notReady_);
    }

    std::size_t held() const
    {
        std::size_t count = 0;
        for (const auto& [track, wire] : wires_)
        {
            count += wire->status == SendStatus::held ? 1 : 0;
        }
        return count;
    }

    MediaRoutes::Route recordings_;
    const std::shared_ptr<test::RecordingScript> recording_ = std::make_shared<test::RecordingScript>();
    bool notReady_ = false;
};

TEST_F(RecordedSessionTest, NoPacketLeavesWhileARecordingSeeks)
{
    recording_->result("play", hostStreamNotReady);
    EXPECT_EQ(attempt({}), rtspOk);
    EXPECT_TRUE(notReady_);
    EXPECT_EQ(held(), 2u);
    EXPECT_EQ(attempt({true, false}), rtspOk);
    EXPECT_EQ(held(), 2u) << "it seeks still";
    EXPECT_EQ(answers_, 0);
    recording_->result("play", 0);
    EXPECT_EQ(attempt({true, false}), rtspOk);
    EXPECT_FALSE(notReady_);
    EXPECT_EQ(answers_, 1);
    EXPECT_EQ(heldAtAnswer_, 2);
    EXPECT_EQ(held(), 0u);
}

TEST_F(RecordedSessionTest, LastAttemptReleasesTheTransports)
{
    recording_->result("play", hostStreamNotReady);
    attempt({});
    EXPECT_EQ(attempt({true, true}), rtspServiceUnavailable);
    EXPECT_FALSE(notReady_);
    EXPECT_EQ(held(), 0u);
    EXPECT_EQ(session_->pause(""), rtspInvalidState);
}

TEST_F(RecordedSessionTest, PauseAndEndReleaseAWaitingPlay)
{
    EXPECT_EQ(attempt({}), rtspOk);
    recording_->result("play", hostStreamNotReady);
    attempt({});
    EXPECT_EQ(held(), 2u);
    EXPECT_EQ(session_->pause(""), rtspOk);
    EXPECT_EQ(held(), 0u);
    attempt({});
    session_->end();
    EXPECT_EQ(wires_["trackID=0"]->status, SendStatus::closed);
    EXPECT_EQ(attempt({true, false}), rtspSessionNotFound);
}

TEST(SessionTable, FindsSessionsByTheirExactIdOnly)
{
    SessionTable table{LimitsConfig()};
    const auto script = std::make_shared<ControllerScript>();
    const auto session =
        table.create("p", SafePointer<IRTSPController>(new FakeController(script)), anyRoute, here, atMs(0));
    const std::string id = session->id();
    EXPECT_EQ(id.size(), 13u);
    EXPECT_EQ(table.find(id), session);
    std::string lower = id;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    if (lower != id)
    {
        EXPECT_EQ(table.find(lower), nullptr);
    }
    for (const std::string& other : {std::string(), id.substr(1), id + "0", "0" + id, "W" + id.substr(1),
                                     "0x" + id.substr(2), "+" + id.substr(1)})
    {
        EXPECT_EQ(table.find(other), nullptr) << other;
    }
}

TEST(SessionTable, HasLimitsInAllAndPerAddress)
{
    LimitsConfig limits;
    limits.sessions = 3;
    limits.sessionsPerAddress = 2;
    SessionTable table(limits);
    const auto script = std::make_shared<ControllerScript>();
    const SafePointer<IRTSPController> controller(new FakeController(script));
    const auto first = table.create("p", controller, anyRoute, here, atMs(0));
    EXPECT_NE(first, nullptr);
    EXPECT_NE(table.create("p", controller, anyRoute, here, atMs(0)), nullptr);
    EXPECT_EQ(table.create("p", controller, anyRoute, here, atMs(0)), nullptr);
    EXPECT_NE(table.create("p", controller, anyRoute, SocketAddress::Key{2}, atMs(0)), nullptr);
    EXPECT_EQ(table.create("p", controller, anyRoute, SocketAddress::Key{3}, atMs(0)), nullptr);
    table.end(first);
    EXPECT_NE(table.create("p", controller, anyRoute, here, atMs(0)), nullptr);
}

TEST(SessionTable, EndsWhatExpired)
{
    LimitsConfig limits;
    limits.sessionTimeout = 60;
    SessionTable table(limits);
    const auto script = std::make_shared<ControllerScript>();
    const SafePointer<IRTSPController> controller(new FakeController(script));
    table.create("p", controller, anyRoute, here, atMs(0));
    const auto younger = table.create("p", controller, anyRoute, here, atMs(30000));
    EXPECT_EQ(table.endExpired(atMs(59999)), 0u);
    EXPECT_EQ(table.endExpired(atMs(60000)), 1u);
    EXPECT_EQ(table.count(), 1u);
    EXPECT_EQ(table.find(younger->id()), younger);
}

}  // namespace
}  // namespace refhost

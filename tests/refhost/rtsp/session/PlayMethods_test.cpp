#include "refhost/rtsp/session/PlayMethods.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "refhost/base/ChangeSignal.h"
#include "refhost/base/HostStatus.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"
#include "tests/refhost/rtsp/session/FakeRecording.h"

namespace refhost
{
namespace
{

using test::FakeRecordingFactory;
using test::Received;
using test::RecordingScript;
using test::TestClient;

/// Sessions that play a recording, whose controller is a fake one.
class PlayMethodsTest : public test::RtspServerFixture
{
protected:
    static constexpr const char* recording = "orv/playback/1_1700000000_1700000060";

    void SetUp() override
    {
        MediaRoutes::Route route;
        route.prefix = "orv/playback";
        route.factory = SafePointer<IRTSPControllerFactory>(new FakeRecordingFactory(script_));
        route.recorded = true;
        routes.add(route);
        start();
        client_ = std::make_unique<TestClient>(server->port());
    }

    /// Sets both tracks up and stores the session's id in `id_`.
    void setUp(const std::string& headers = "")
    {
        for (int i = 0; i < 2; ++i)
        {
            const Received response = client_->request("SETUP", track(url(recording), i),
                                                       tcp + headers + (id_.empty() ? "" : session(id_)));
            ASSERT_EQ(response.status, 200);
            id_ = response.session();
        }
    }

    Received play(const std::string& headers = "")
    {
        return client_->request("PLAY", url(recording), session(id_) + headers);
    }

    Received pause(const std::string& headers = "")
    {
        return client_->request("PAUSE", url(recording), session(id_) + headers);
    }

    void sendPlay(const std::string& headers = "")
    {
        client_->send(TestClient::text("PLAY", url(recording), 100, session(id_) + headers, ""));
    }

    /// Announces a change that makes nothing ready, and waits until it is handled.
    void announceInVain()
    {
        const long before = script_->countOf("play");
        ChangeSignal::instance().announce();
        ASSERT_TRUE(eventually([&] { return script_->countOf("play") > before; }));
    }

    const std::shared_ptr<RecordingScript> script_ = std::make_shared<RecordingScript>();
    std::unique_ptr<TestClient> client_;
    std::string id_;
};

TEST_F(PlayMethodsTest, ResponseHasTheRangeThatIsPlayed)
{
    setUp();
    const Received whole = play();
    EXPECT_EQ(whole.status, 200);
    EXPECT_EQ(whole.header("Range"), "npt=0.000-60.000");
    EXPECT_EQ(whole.header("Scale"), "") << "only when asked";
    EXPECT_EQ(whole.header("Speed"), "");
    EXPECT_EQ(play("Range: npt=10.5-2000\r\n").header("Range"), "npt=10.500-60.000");
    EXPECT_EQ(play("Range: clock=20231114T221330Z-\r\n").header("Range"),
              "clock=20231114T221330.000Z-20231114T221420.000Z");
}

TEST_F(PlayMethodsTest, ResponseHasTheScaleAndSpeedThatAreUsed)
{
    setUp();
    const Received both = play("Scale: 2\r\nSpeed: 0.01\r\n");
    EXPECT_EQ(both.header("Scale"), "2.0");
    EXPECT_EQ(both.header("Speed"), "0.25");
    const Received scale = play("Scale: -1\r\n");
    EXPECT_EQ(scale.header("Scale"), "-1.0");
    EXPECT_EQ(scale.header("Speed"), "");
}

TEST_F(PlayMethodsTest, RtpInfoIsTheControllers)
{
    setUp();
    EXPECT_EQ(play().header("RTP-Info"), "url=" + track(url(recording), 0) + ";seq=10;rtptime=90000,url=" +
                                             track(url(recording), 1) + ";seq=20;rtptime=8000");
}

TEST_F(PlayMethodsTest, PlayWaitsUntilTheSeekHasFinished)
{
    setUp();
    script_->result("play", hostStreamNotReady);
    sendPlay("Range: npt=10-\r\nScale: 2\r\n");
    ASSERT_TRUE(eventually([&] { return script_->countOf("play") == 2; })) << "both tracks get ready at once";
    announceInVain();
    EXPECT_EQ(client_->receive(0).kind, Received::Kind::nothing);
    script_->result("play", 0);
    ChangeSignal::instance().announce();
    const Received response = client_->response();
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.header("CSeq"), "100");
    EXPECT_EQ(response.header("Range"), "npt=10.000-60.000");
    EXPECT_EQ(response.header("Scale"), "2.0");
    EXPECT_EQ(script_->countOf("setPlayRange"), 2) << "the order is given once";
    EXPECT_EQ(script_->countOf("setSpeed"), 2);
}

TEST_F(PlayMethodsTest, PlayThatNeverGetsReadyIsAnsweredAtTheDeadline)
{
    setUp();
    script_->result("play", hostStreamNotReady);
    sendPlay();
    ASSERT_TRUE(eventually([&] { return script_->countOf("play") == 2; }));
    time.advance(RtspConnection::maxDeferral);
    EXPECT_EQ(client_->response().status, 503);
    EXPECT_EQ(script_->countOf("pause trackID=0"), 1);
    EXPECT_EQ(script_->countOf("pause trackID=1"), 1);
    EXPECT_EQ(pause().status, 455) << "nothing plays";
    script_->result("play", 0);
    EXPECT_EQ(play().status, 200) << "the session is as good as before";
}

TEST_F(PlayMethodsTest, ASessionMayEndWhilePlayWaits)
{
    setUp();
    script_->result("play", hostStreamNotReady);
    sendPlay();
    ASSERT_TRUE(eventually([&] { return script_->countOf("play") == 2; }));
    TestClient other(server->port());
    EXPECT_EQ(other.request("TEARDOWN", url(recording), session(id_)).status, 200);
    EXPECT_EQ(server->sessionCount(), 0u);
    ChangeSignal::instance().announce();
    EXPECT_EQ(client_->response().status, 454);
}

TEST_F(PlayMethodsTest, AClientMayVanishWhilePlayWaits)
{
    setUp();
    script_->result("play", hostStreamNotReady);
    sendPlay();
    ASSERT_TRUE(eventually([&] { return script_->countOf("play") == 2; }));
    client_->close(true);
    EXPECT_TRUE(eventually([&] { return server->sessionCount() == 0; }));
    EXPECT_EQ(script_->countOf("stop"), 2);
}

TEST_F(PlayMethodsTest, InvalidRangesAreRefusedAndChangeNothing)
{
    setUp();
    for (const char* const range : {"npt=60-", "npt=20-10", "clock=20231114T221420Z-", "smpte=0:10:00-",
                                    "junk", "clock=20231114T220000Z-20231114T221320Z"})
    {
        EXPECT_EQ(play(std::string("Range: ") + range + "\r\n").status, 457) << range;
    }
    EXPECT_EQ(play("Range: bytes=0-\r\n").status, 501);
    EXPECT_EQ(play("Scale: fast\r\n").status, 400);
    EXPECT_EQ(script_->countOf("setPlayRange"), 0);
    EXPECT_EQ(script_->countOf("play"), 0);
    EXPECT_EQ(pause().status, 455);
}

TEST_F(PlayMethodsTest, RangeWithoutRecordedMediaIsInvalidAndPlayingGoesOn)
{
    setUp();
    EXPECT_EQ(play().status, 200);
    script_->result("play", hostRangeInvalid);
    EXPECT_EQ(play("Range: npt=50-\r\n").status, 457);
    EXPECT_EQ(script_->countOf("pause"), 0);
    EXPECT_EQ(pause().status, 200);
}

TEST_F(PlayMethodsTest, AbandonedSeekLeavesPlayingTracksAlone)
{
    setUp();
    EXPECT_EQ(client_->request("PLAY", track(url(recording), 0), session(id_)).status, 200);
    script_->result("play", hostStreamNotReady);
    sendPlay("Range: npt=50-\r\n");
    ASSERT_TRUE(eventually([&] { return script_->countOf("play") == 3; }));
    script_->result("play", hostRangeInvalid);
    ChangeSignal::instance().announce();
    EXPECT_EQ(client_->response().status, 457);
    EXPECT_EQ(script_->countOf("pause trackID=0"), 0) << "it played before";
    EXPECT_EQ(script_->countOf("pause trackID=1"), 1) << "it was to be played by this request";
}

TEST_F(PlayMethodsTest, PlayWithARangeWhilePlayingSeeks)
{
    setUp();
    play();
    script_->place(3);
    EXPECT_EQ(play("Range: npt=30-\r\n").header("Range"), "npt=30.000-60.000");
    EXPECT_EQ(script_->countOf("setPlayRange trackID=0 30 60 0 1"), 1);
    EXPECT_EQ(script_->countOf("pause"), 0);
}

TEST_F(PlayMethodsTest, PlayWithoutARangeGoesOnAfterPause)
{
    setUp();
    play("Range: npt=10-40\r\n");
    script_->place(12);
    EXPECT_EQ(pause().status, 200);
    const long moves = script_->countOf("setPlayRange");
    EXPECT_EQ(play().header("Range"), "npt=12.000-40.000");
    EXPECT_EQ(script_->countOf("setPlayRange"), moves);
}

TEST_F(PlayMethodsTest, PauseAtAnInstantIsSetForEveryTrack)
{
    setUp();
    EXPECT_EQ(pause("Range: npt=10-\r\n").status, 455) << "nothing plays";
    play();
    EXPECT_EQ(pause("Range: npt=10\r\n").status, 200);
    EXPECT_EQ(script_->countOf("setPauseRange"), 2);
    EXPECT_EQ(script_->countOf("pause "), 0);
    EXPECT_EQ(pause("Range: npt=61-\r\n").status, 457);
    EXPECT_EQ(pause("Range: npt=1-2\r\n").status, 457);
    EXPECT_EQ(pause("Range: bytes=1-\r\n").status, 501);
    EXPECT_EQ(pause().status, 200);
    EXPECT_EQ(script_->countOf("pause "), 2);
}

TEST_F(PlayMethodsTest, ReplayIsOrderedBySetupOrPlay)
{
    setUp("Require: onvif-replay\r\n");
    EXPECT_EQ(play("Rate-Control: no\r\nFrames: intra\r\nImmediate: yes\r\nCSeq: 1\r\n").status, 200);
    EXPECT_EQ(script_->countOf("setPlayRange trackID=0 0 0 "), 1);
    const auto kinds = [&]
    {
        std::vector<int> all;
        const std::lock_guard<std::mutex> guard(script_->mutex);
        for (const std::string& call : script_->calls)
        {
            if (call.rfind("setPlayRange trackID=0 ", 0) == 0)
            {
                std::istringstream text(call.substr(23));
                double begin = 0;
                double end = 0;
                int kind = 0;
                text >> begin >> end >> kind;
                all.push_back(kind & 0xff);
            }
        }
        return all;
    };
    EXPECT_THAT(kinds(), testing::ElementsAre(7));
    EXPECT_EQ(play("Range: npt=1-\r\n").status, 200);
    EXPECT_THAT(kinds(), testing::ElementsAre(7, 1)) << "the session keeps what SETUP required";
    EXPECT_EQ(play("Require: onvif-replay\r\nRate-Control: perhaps\r\n").status, 400);
}

TEST_F(PlayMethodsTest, WithoutReplayItsHeadersChangeNothing)
{
    setUp();
    EXPECT_EQ(play("Rate-Control: no\r\nFrames: intra\r\n").status, 200);
    EXPECT_EQ(script_->countOf("setPlayRange"), 0);
}

TEST_F(PlayMethodsTest, ALiveStreamHasNoReplay)
{
    const std::string id = setUpTcp(*client_, 1);
    const Received response = client_->request("PLAY", url(), session(id) + "Require: onvif-replay\r\n");
    EXPECT_EQ(response.status, 551);
    EXPECT_EQ(response.header("Unsupported"), "onvif-replay");
}

TEST_F(PlayMethodsTest, ALiveStreamIgnoresScaleAndSpeed)
{
    const std::string id = setUpTcp(*client_, 1);
    const Received response =
        client_->request("PLAY", url(), session(id) + "Scale: fast\r\nSpeed: 2\r\nRange: npt=5-\r\n");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.header("Range"), "npt=now-");
    EXPECT_EQ(response.header("Scale"), "");
}

TEST_F(PlayMethodsTest, AnIntervalWithoutRecordedMediaIsNotFound)
{
    script_->result("create", hostRecordingUnknown);
    EXPECT_EQ(client_->request("DESCRIBE", url(recording)).status, 404);
    EXPECT_EQ(client_->request("SETUP", track(url(recording), 0), tcp).status, 404);
}

TEST_F(PlayMethodsTest, DescribeWaitsForARecordingAsForAStream)
{
    script_->result("create", hostStreamNotReady);
    client_->send(TestClient::text("DESCRIBE", url(recording), 1, "", ""));
    ASSERT_TRUE(eventually([&] { return script_->countOf("create") == 1; }));
    script_->result("create", 0);
    ChangeSignal::instance().announce();
    const Received response = client_->response();
    EXPECT_EQ(response.status, 200);
    EXPECT_THAT(response.body, testing::HasSubstr("a=range:npt=0-60\r\na=length:npt=60\r\n"));
}

}  // namespace
}  // namespace refhost

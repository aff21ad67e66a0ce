#include <gmock/gmock.h>

#include <atomic>
#include <cstdlib>

#include "tests/refhost/ingest/client/ScriptedCamera.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;
using test::CameraRequest;
using test::ClientWorld;
using test::ScriptedCamera;
using Kind = RtspClientEnd::Kind;

constexpr const char* methods[] = {"OPTIONS", "DESCRIBE", "SETUP", "PLAY"};

TEST(RtspClientEnds, StatusCodesHaveTheirKinds)
{
    const std::pair<const char*, Kind> cases[] = {
        {"404 Not Found", Kind::notFound},
        {"410 Gone", Kind::notFound},
        {"453 Not Enough Bandwidth", Kind::busy},
        {"503 Service Unavailable", Kind::busy},
        {"461 Unsupported Transport", Kind::noUsableTransport},
        {"401 Unauthorized", Kind::unauthorized},
        {"454 Session Not Found", Kind::protocolError},
        {"500", Kind::protocolError},
        {"999 x", Kind::protocolError},
        {"201 Created", Kind::protocolError},
    };
    for (const auto& [status, kind] : cases)
    {
        for (const char* method : {"DESCRIBE", "SETUP", "PLAY"})
        {
            ClientWorld world;
            const auto camera = world.startAndAccept();
            camera->answer(camera->serveUpTo(method), status);
            if (kind == Kind::noUsableTransport && method == std::string("SETUP"))
            {
                camera->answer(camera->expect("SETUP"), status);  // UDP as well
            }
            ASSERT_TRUE(world.events.waitEnded());
            const RtspClientEnd end = world.events.end();
            EXPECT_EQ(end.kind, kind) << method << " " << status;
            EXPECT_EQ(end.status, std::atoi(status));
            EXPECT_FALSE(end.text.empty());
            EXPECT_EQ(end.retryAfter, std::nullopt);
            if (kind != Kind::unauthorized)
            {
                EXPECT_EQ(end.text, std::string("the camera answered ") + method + " with " + status);
            }
        }
    }
}

TEST(RtspClientEnds, RetryAfterIsReported)
{
    const std::pair<const char*, std::optional<Duration>> cases[] = {
        {"30", 30s},       {" 0 ", 0s}, {"99999999999", 24h}, {"-5", std::nullopt}, {"soon", std::nullopt},
        {"", std::nullopt}};
    for (const auto& [value, expected] : cases)
    {
        ClientWorld world;
        const auto camera = world.startAndAccept();
        camera->answer(camera->serveUpTo("DESCRIBE"), "503 Busy",
                       std::string("Retry-After: ") + value + "\r\n");
        ASSERT_TRUE(world.events.waitEnded());
        EXPECT_EQ(world.events.end().retryAfter, expected) << value;
    }
}

TEST(RtspClientEnds, ACameraThatChoosesUdpByItselfHasNoUsableTransport)
{
    ClientWorld world;
    const auto camera = world.startAndAccept();
    camera->answer(camera->serveUpTo("SETUP"), "200 OK",
                   "Session: 7\r\nTransport: RTP/AVP;unicast;client_port=0-1;server_port=5000-5001\r\n");
    EXPECT_EQ(camera->serve("TEARDOWN").header("Session"), "7");
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().kind, Kind::noUsableTransport);
    EXPECT_EQ(world.events.end().otherTransport, CameraTransport::udp);
}

TEST(RtspClientEnds, WhereNobodyListensTheCameraIsUnreachable)
{
    ClientWorld world;
    world.connector.refuse("cannot connect to camera.example port 554: Connection refused");
    world.start();
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().kind, Kind::unreachable);
    EXPECT_EQ(world.events.end().text, "cannot connect to camera.example port 554: Connection refused");
    EXPECT_EQ(world.state(), RtspClientState::closed);
}

TEST(RtspClientEnds, AnAnswerThatDoesNotComeInTimeEndsIt)
{
    for (const char* method : methods)
    {
        ClientWorld world;
        world.options.answerTimeout = 50ms;
        world.options.teardownTimeout = 1ms;
        const auto camera = world.startAndAccept();
        camera->serveUpTo(method);
        ASSERT_TRUE(world.events.waitEnded());
        EXPECT_EQ(world.events.end().kind, Kind::timedOut) << method;
        EXPECT_TRUE(camera->waitClosed());
    }
}

TEST(RtspClientEnds, ACameraThatNeverAnswersOptionsIsDescribedAfterAWhile)
{
    ClientWorld world;
    world.options.optionsTimeout = 50ms;
    const auto camera = world.startAndAccept();
    const CameraRequest options = camera->expect("OPTIONS");
    const CameraRequest describe = camera->expect("DESCRIBE");
    camera->answer(options, "200 OK");  // after all
    camera->answer(describe, "200 OK", "", ClientWorld::oneTrack);
    camera->serve("SETUP", "Session: 1\r\n");
    camera->serve("PLAY");
    EXPECT_TRUE(world.events.waitPlaying());
    EXPECT_EQ(world.connector.asked().size(), 1U);
}

TEST(RtspClientEnds, AnAnswerThatTricklesEndsItAsWell)
{
    ClientWorld world;
    world.options.openTimeout = 300ms;
    const auto camera = world.startAndAccept();
    camera->expect("OPTIONS");
    for (int i = 0; i < 10'000 && world.events.calls() == 0; ++i)
    {
        camera->send(i % 2 == 0 ? "R" : "\r\n");
        camera->stream().read(1);
    }
    ASSERT_TRUE(world.events.waitEnded());
}

TEST(RtspClientEnds, ConnectingHasADeadline)
{
    ClientWorld world;
    world.options.openTimeout = 20ms;
    world.connector.stall();
    world.start();
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().kind, Kind::timedOut);
}

TEST(RtspClientEnds, ACameraThatSendsNoMediaIsEndedByADeadline)
{
    ClientWorld world;
    world.options.silenceTimeout = 100ms;
    const auto camera = world.startPlaying();
    camera->send(ScriptedCamera::packet(1, "reports are no media"));
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().kind, Kind::silent);
    EXPECT_EQ(world.events.end().text, "the camera sent no media for 0.1 s");
    camera->serve("TEARDOWN");
}

TEST(RtspClientEnds, TimesWithoutEndEndNothing)
{
    ClientWorld world;
    for (Duration* const each : {&world.options.openTimeout, &world.options.connectTimeout,
                                 &world.options.answerTimeout, &world.options.silenceTimeout})
    {
        *each = Duration::max();
    }
    const auto camera = world.startPlaying();
    camera->send(ScriptedCamera::packet(0, "media"));
    EXPECT_TRUE(world.events.waitPackets(1));
    EXPECT_EQ(world.state(), RtspClientState::playing);
}

TEST(RtspClientEnds, ACameraThatClosesIsUnreachableBeforePlayAndEndedByCameraAfter)
{
    for (const char* method : {"SETUP", "PLAY"})
    {
        for (const bool broken : {false, true})
        {
            ClientWorld world;
            const auto camera = world.startAndAccept();
            camera->serveUpTo(method);
            broken ? camera->stream().fail() : camera->stream().endWriting();
            ASSERT_TRUE(world.events.waitEnded());
            EXPECT_EQ(world.events.end().kind, Kind::unreachable) << method;
        }
    }
    ClientWorld world;
    const auto camera = world.startPlaying();
    camera->stream().endWriting();
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().kind, Kind::endedByCamera);
    EXPECT_EQ(world.events.end().text, "the camera closed the connection");
    EXPECT_EQ(world.state(), RtspClientState::closed);
}

TEST(RtspClientEnds, ACameraThatAlwaysClosesIsCalledThreeTimes)
{
    ClientWorld world;
    world.start();
    for (int i = 0; i < 3; ++i)
    {
        const auto camera = world.connector.accept();
        camera->request();
        camera->stream().endWriting();
    }
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().kind, Kind::unreachable);
    EXPECT_EQ(world.connector.asked().size(), 3U);
}

TEST(RtspClientEnds, ASessionThatTheCameraForgetsEndsIt)
{
    ClientWorld world;
    const auto camera = world.startAndAccept();
    camera->serve("OPTIONS");
    camera->serve("DESCRIBE", "", ClientWorld::oneTrack);
    camera->serve("SETUP", "Session: 1;timeout=1\r\n");
    camera->serve("PLAY");
    camera->answer(camera->expect("OPTIONS"), "454 Session Not Found");
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().kind, Kind::endedByCamera);
    EXPECT_EQ(world.events.end().status, 454);
}

TEST(RtspClientEnds, WhatIsNotRtspEndsIt)
{
    const std::string much(20'000, 'a');
    const std::pair<std::string, const char*> cases[] = {
        {"HTTP/1.1 400 Bad Request\r\n\r\n", "HTTP"},
        {std::string("\0\0\0\0", 4), "zeros"},
        {"SSH-2.0-x\1\r\n", "control characters"},
        {"RTSP/1.0 abc OK\r\n\r\n", "no status"},
        {"RTSP/1.0 99 OK\r\n\r\n", "a status that is none"},
        {"RTSP/1.0 200 OK\r\nContent-Length: -1\r\n\r\n", "negative length"},
        {"RTSP/1.0 200 OK\r\nContent-Length: 1x\r\n\r\n", "length that is no number"},
        {"RTSP/1.0 200 OK\r\nContent-Length: 99999999999\r\n\r\n", "length beyond the bound"},
        {"RTSP/1.0 200 OK\r\nX: " + much, "header lines beyond the bound"},
        {much, "a line without end"},
        {much.substr(0, 9'000) + "\r\n", "text without end"},
    };
    for (const auto& [text, name] : cases)
    {
        ClientWorld world;
        const auto camera = world.startAndAccept();
        camera->expect("OPTIONS");
        camera->send(text);
        camera->waitClosed();
        ASSERT_TRUE(world.events.waitEnded()) << name;
        EXPECT_EQ(world.events.end().kind, Kind::protocolError) << name << ": " << world.events.end().text;
    }
}

TEST(RtspClientEnds, ADescriptionWithoutTracksEndsIt)
{
    for (const char* text : {"", "v=0", "rubbish", "m=\r\na=rtpmap:\r\n", "m=video 0 RTP/AVP 96\r\n",
                             "m=video 0 RTP/AVP 200\r\na=rtpmap:200 H264/90000\r\n",
                             "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/0\r\n",
                             "m=video 0 RTP/AVP 96\r\na=rtpmap:97 H264/90000\r\n", "\n\n\r\n=\n"})
    {
        ClientWorld world;
        const auto camera = world.startAndAccept();
        camera->serve("OPTIONS");
        camera->serve("DESCRIBE", "", text);
        ASSERT_TRUE(world.events.waitEnded());
        EXPECT_EQ(world.events.end().kind, Kind::protocolError) << text;
    }
}

TEST(RtspClientEnds, WithoutAChosenTrackNothingIsFound)
{
    for (const std::vector<std::size_t>& chosen : {std::vector<std::size_t>{}, {7}})
    {
        ClientWorld world;
        world.events.chosen = chosen;
        const auto camera = world.startAndAccept();
        camera->serve("OPTIONS");
        camera->serve("DESCRIBE", "", ClientWorld::oneTrack);
        ASSERT_TRUE(world.events.waitEnded());
        EXPECT_EQ(world.events.end().kind, Kind::notFound);
    }
}

TEST(RtspClientEnds, ACameraThatAsksAndDoesNotReadEndsIt)
{
    ClientWorld world;
    const auto camera = world.startPlaying();
    camera->stream().stall(true);
    for (int i = 0; i < 200; ++i)
    {
        std::string text;
        for (int j = 0; j < 20; ++j)
        {
            text += "OPTIONS rtsp://x/ RTSP/1.0\r\nCSeq: 1\r\n\r\n";
        }
        camera->send(text);
    }
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().kind, Kind::protocolError);
}

TEST(RtspClientEnds, AFloodDoesNotHoldUpTheLoop)
{
    ClientWorld world;
    const auto camera = world.startPlaying();
    std::string flood;
    for (int i = 0; i < 4'000; ++i)
    {
        flood += ScriptedCamera::packet(0, std::string(1'000, 'x'));
    }
    std::atomic<bool> passed{false};
    bool early = false;
    std::size_t packets = 0;
    const auto judge = [&](const std::string& event)
    {
        if (event == "packet" && ++packets == 1)
        {
            world.loop.post([&] { passed = true; });
        }
        early = early || (packets < 4'000 && passed);
    };
    runOn(world.loop, [&] { world.events.within = judge; });
    camera->send(flood);
    ASSERT_TRUE(world.events.waitPackets(4'000));
    runOn(world.loop, [&] { EXPECT_TRUE(early) << "posted work waited for all of the flood"; });
}

}  // namespace
}  // namespace refhost

#include <gmock/gmock.h>

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

std::string replaced(std::string text, const std::string& from, const std::string& to)
{
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    {
        text.replace(at, from.size(), to);
    }
    return text;
}

/// How a camera writes its answers.
struct Style
{
    const char* name;
    const char* head;  ///< in front of all answers; {cseq} stands for the request's
    const char* lineEnd = "\r\n";
    const char* behind = "";
};

const Style styles[] = {
    {"lines end by LF", "RTSP/1.0 200 OK\r\nCSeq: {cseq}\r\n", "\n"},
    {"no reason", "RTSP/1.0 200\r\nCSeq: {cseq}\r\n"},
    {"a reason of many words", "RTSP/1.0 200 It went very well\r\nCSeq: {cseq}\r\n"},
    {"version 1.1, two blanks", "RTSP/1.1  200  OK\r\nCSeq: {cseq}\r\n"},
    {"no CSeq", "RTSP/1.0 200 OK\r\n"},
    {"always the same CSeq", "RTSP/1.0 200 OK\r\nCSeq: 1\r\n"},
    {"a CSeq of zero", "RTSP/1.0 200 OK\r\nCSeq: 0\r\n"},
    {"a CSeq that is no number", "RTSP/1.0 200 OK\r\nCSeq: x\r\n"},
    {"a CSeq that is too big", "RTSP/1.0 200 OK\r\nCSeq: 99999999999999999999\r\n"},
    {"CSeq in other letters", "RTSP/1.0 200 OK\r\ncseq:{cseq}\r\n"},
    {"blanks before colons", "RTSP/1.0 200 OK\r\nCSEQ  :   {cseq}  \r\n"},
    {"a line that is no header", "RTSP/1.0 200 OK\r\nhello\r\nCSeq: {cseq}\r\n"},
    {"empty lines between answers", "\r\n\r\nRTSP/1.0 200 OK\r\nCSeq: {cseq}\r\n", "\r\n", "\r\n\n"},
    {"other headers", "RTSP/1.0 200 OK\r\nServer: a:b\r\nDate: 1\r\nDate: 2\r\nCSeq: {cseq}\r\n"},
    {"provisional answers",
     "RTSP/1.0 100 Continue\r\nCSeq: {cseq}\r\n\r\nRTSP/1.0 200 OK\r\nCSeq: {cseq}\r\n"},
    {"an empty packet before", "$\001\000\000"},
};

CameraRequest answerAs(const Style& style, ScriptedCamera& camera, const std::string& method,
                       std::string headers, const std::string& body = "")
{
    CameraRequest request = camera.expect(method);
    std::string head = style.head;
    if (head.front() == '$')
    {
        head = std::string("$\1\0\0", 4) + "RTSP/1.0 200 OK\r\nCSeq: {cseq}\r\n";
    }
    head = replaced(head, "{cseq}", request.header("CSeq"));
    headers += body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n";
    camera.send(replaced(head + headers + "\r\n", "\r\n", style.lineEnd) + body + style.behind);
    return request;
}

TEST(RtspClientQuirks, AnswersAreReadHoweverTheyAreWritten)
{
    for (const Style& style : styles)
    {
        SCOPED_TRACE(style.name);
        ClientWorld world;
        const auto camera = world.startAndAccept();
        answerAs(style, *camera, "OPTIONS", "public: DESCRIBE , get_parameter\r\n");
        answerAs(style, *camera, "DESCRIBE", "content-TYPE: application/sdp\r\n", ClientWorld::oneTrack);
        answerAs(style, *camera, "SETUP",
                 "SESSION:  a-b.c ;  Timeout = 2 ;x\r\ntransport: RTP/AVP/TCP;interleaved = 4 - 5\r\n");
        EXPECT_EQ(answerAs(style, *camera, "PLAY", "").header("Session"), "a-b.c");
        ASSERT_TRUE(world.events.waitPlaying());
        camera->send(ScriptedCamera::packet(4, "media"));
        EXPECT_TRUE(world.events.waitPackets(1));
    }
}

TEST(RtspClientQuirks, ACameraThatRefusesOptionsIsDescribed)
{
    for (const char* status : {"501 Not Implemented", "405 Method Not Allowed", "404 Not Found", "500 Oops"})
    {
        ClientWorld world;
        const auto camera = world.startAndAccept();
        camera->answer(camera->expect("OPTIONS"), status);
        EXPECT_EQ(camera->expect("DESCRIBE").method, "DESCRIBE") << status;
    }
}

TEST(RtspClientQuirks, ACameraThatClosesBehindOptionsIsCalledAgainWithoutThem)
{
    ClientWorld world;
    const auto first = world.startAndAccept();
    first->expect("OPTIONS");
    first->stream().endWriting();
    const auto second = world.connector.accept();
    second->serve("DESCRIBE", "", ClientWorld::oneTrack);
    second->serve("SETUP");
}

struct Base
{
    const char* headers;
    const char* url;
    const char* control;
    const char* setUp;
};

TEST(RtspClientQuirks, ControlUrlsAreMadeAsCamerasMeanThem)
{
    const Base bases[] = {
        {"", "rtsp://h/live", "track1", "rtsp://h/live/track1"},
        {"", "rtsp://h/live/", "track1", "rtsp://h/live/track1"},
        {"", "rtsp://h", "track1", "rtsp://h/track1"},
        {"", "rtsp://h/live?a=b/c", "track1", "rtsp://h/live?a=b/c/track1"},
        {"", "rtsp://h/live", "?ctype=video", "rtsp://h/live?ctype=video"},
        {"", "rtsp://h/live", "/track1", "rtsp://h/live/track1"},
        {"", "rtsp://h/live", "/live/track1", "rtsp://h/live/track1"},
        {"", "rtsp://h/live", "*", "rtsp://h/live"},
        {"", "rtsp://h/live", "", "rtsp://h/live"},
        {"", "rtsp://h:8554/live", "rtsp://192.168.0.9/other/track1", "rtsp://h:8554/other/track1"},
        {"", "rtsp://h/live", "rtsp://192.168.0.9:554", "rtsp://h/"},
        {"", "rtsp://[2001:db8::1]:8554/live", "trackID=0", "rtsp://[2001:db8::1]:8554/live/trackID=0"},
        {"", "rtsp://h/live", "track 1", "rtsp://h/live/track%201"},
        {"Content-Base: rtsp://192.168.0.9/base/\r\n", "rtsp://h/live", "track1", "rtsp://h/base/track1"},
        {"Content-Base: rtsp://192.168.0.9:554/base\r\n", "rtsp://h/live", "track1", "rtsp://h/base/track1"},
        {"Content-Base: /base/\r\n", "rtsp://h/live", "track1", "rtsp://h/base/track1"},
        {"Content-Base: rubbish\r\n", "rtsp://h/live", "track1", "rtsp://h/live/track1"},
        {"Content-Base:\r\n", "rtsp://h/live", "track1", "rtsp://h/live/track1"},
        {"Content-Location: rtsp://192.168.0.9/loc/\r\n", "rtsp://h/live", "track1", "rtsp://h/loc/track1"},
        {"Content-Location: rtsp://x/loc/\r\nContent-Base: rtsp://x/base/\r\n", "rtsp://h/live", "track1",
         "rtsp://h/base/track1"},
        {"Content-Base: rtsp://x/base/?a=b\r\n", "rtsp://h/live", "track1", "rtsp://h/base/?a=b/track1"},
        {"Content-Base: rtsp://guard:s3cret@x/base/\r\n", "rtsp://guard:s3cret@h/live", "track1",
         "rtsp://h/base/track1"},
    };
    for (const Base& base : bases)
    {
        ClientWorld world;
        world.start(base.url);
        const auto camera = world.connector.accept();
        camera->serve("OPTIONS");
        camera->serve("DESCRIBE", base.headers,
                      "v=0\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=control:" +
                          std::string(base.control) + "\r\n");
        EXPECT_EQ(camera->expect("SETUP").uri, base.setUp) << base.url << " " << base.headers << base.control;
    }
}

TEST(RtspClientQuirks, TheWholePresentationHasAControlUrlOfItsOwn)
{
    ClientWorld world;
    const auto camera = world.startAndAccept();
    camera->serve("OPTIONS");
    camera->serve("DESCRIBE", "Content-Base: rtsp://x/base/\r\n",
                  replaced(ClientWorld::twoTracks, "a=control:*", "a=control:rtsp://x/whole"));
    EXPECT_EQ(camera->serve("SETUP", "Session: 1\r\n").uri, "rtsp://camera.example/base/track1");
    camera->serve("SETUP");
    EXPECT_EQ(camera->serve("PLAY").uri, "rtsp://camera.example/whole");
}

TEST(RtspClientQuirks, ADescriptionWithoutLengthEndsWhenNothingFollows)
{
    ClientWorld world;
    const auto camera = world.startAndAccept();
    camera->serve("OPTIONS");
    camera->serve("DESCRIBE", "Content-Type: application/sdp\r\n\r\n" + std::string(ClientWorld::twoTracks));
    // The empty line behind it is the last that comes.
    camera->serve("SETUP", "Session: 1\r\n");
    EXPECT_EQ(camera->serve("SETUP").uri, "rtsp://camera.example/live?id=1/track2");
}

TEST(RtspClientQuirks, ADescriptionWithoutLengthEndsWithTheConnection)
{
    ClientWorld world;
    const auto camera = world.startAndAccept();
    camera->serve("OPTIONS");
    camera->serve("DESCRIBE", "Content-Type: application/sdp\r\n\r\n" + std::string(ClientWorld::oneTrack));
    camera->stream().endWriting();
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.described().size(), 1U);
}

TEST(RtspClientQuirks, WhatADescriptionHasBeyondItsLengthIsSkipped)
{
    ClientWorld world;
    const auto camera = world.startAndAccept();
    camera->serve("OPTIONS");
    camera->serve("DESCRIBE", "Content-Length: " + std::to_string(std::string(ClientWorld::oneTrack).size()) +
                                  "\r\n\r\n" + ClientWorld::oneTrack + "a=x:y\r\na=z");
    camera->send("\r\n");
    camera->serve("SETUP");
    EXPECT_EQ(camera->expect("PLAY").method, "PLAY");
}

struct Channels
{
    const char* first;
    const char* second;
    int video;
    int audio;
    int report;  ///< of the audio
};

TEST(RtspClientQuirks, ChannelsAreThoseThatTheCameraUses)
{
    const Channels cases[] = {
        {"", "", 0, 2, 3},
        {"Transport: RTP/AVP/TCP;unicast\r\n", "Transport: RTP/AVP/TCP;unicast\r\n", 0, 2, 3},
        {"Transport: RTP/AVP/TCP;unicast;interleaved=6-7\r\n",
         "Transport: RTP/AVP/TCP;interleaved=4-5;mode=play\r\n", 6, 4, 5},
        {"Transport: RTP/AVP/TCP;interleaved=0-1\r\n", "Transport: RTP/AVP/TCP;interleaved=0-1\r\n", 0, 2, 3},
        {"Transport: RTP/AVP;unicast;interleaved=0\r\n", "Transport: rtp/avp/tcp;INTERLEAVED=8\r\n", 0, 8, 9},
        {"Transport: RTP/AVP/TCP;interleaved=300-301\r\n", "Transport: RTP/AVP/TCP;interleaved=2-999\r\n", 0,
         2, 3},
        {"Transport: RTP/AVP/TCP;interleaved=x\r\n", "Transport: RTP/AVP/TCP;interleaved=-5-2\r\n", 0, 2, 3},
        {"Transport: RTP/AVP/TCP;interleaved=255-0\r\n", "Transport: RTP/AVP/TCP;interleaved=2-2\r\n", 255, 2,
         -1},
    };
    for (const Channels& each : cases)
    {
        SCOPED_TRACE(each.second);
        ClientWorld world;
        const auto camera = world.startAndAccept();
        camera->serve("OPTIONS");
        camera->serve("DESCRIBE", "", ClientWorld::twoTracks);
        camera->serve("SETUP", each.first);
        camera->serve("SETUP", each.second);
        camera->serve("PLAY");
        ASSERT_TRUE(world.events.waitPlaying());
        camera->send(ScriptedCamera::packet(each.video, "v") + ScriptedCamera::packet(each.audio, "a"));
        ASSERT_TRUE(world.events.waitPackets(2));
        EXPECT_EQ(world.events.packets()[0].track, 0U);
        EXPECT_EQ(world.events.packets()[1].track, 1U);
        EXPECT_FALSE(world.events.packets()[1].report);
        if (each.report >= 0)
        {
            camera->send(ScriptedCamera::packet(each.report, "r"));
            ASSERT_TRUE(world.events.waitPackets(3));
            EXPECT_TRUE(world.events.packets()[2].report);
            EXPECT_EQ(world.events.packets()[2].track, 1U);
        }
    }
}

TEST(RtspClientQuirks, TwoTracksInOneChannelAreRefused)
{
    ClientWorld world;
    const auto camera = world.startAndAccept();
    camera->serve("OPTIONS");
    camera->serve("DESCRIBE", "", ClientWorld::twoTracks);
    camera->serve("SETUP", "Session: 1\r\nTransport: RTP/AVP/TCP;interleaved=2-3\r\n");
    camera->serve("SETUP", "Transport: RTP/AVP/TCP;interleaved=2-3\r\n");
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().kind, Kind::protocolError);
    EXPECT_EQ(camera->expect("TEARDOWN").header("Session"), "1");
}

TEST(RtspClientQuirks, AnAudioTrackThatIsRefusedIsLeftOutAndVideoIsNot)
{
    {
        ClientWorld world;
        const auto camera = world.startAndAccept();
        camera->serve("OPTIONS");
        camera->serve("DESCRIBE", "", ClientWorld::twoTracks);
        camera->serve("SETUP", "Session: 1\r\n");
        camera->answer(camera->expect("SETUP"), "500 Oops");
        camera->serve("PLAY");
        ASSERT_TRUE(world.events.waitPlaying());
        ASSERT_EQ(world.events.playing().size(), 1U);
        EXPECT_EQ(world.events.playing()[0].track, 0U);
    }
    ClientWorld world;
    const auto camera = world.startAndAccept();
    camera->serve("OPTIONS");
    camera->serve("DESCRIBE", "", ClientWorld::twoTracks);
    camera->answer(camera->expect("SETUP"), "500 Oops");
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().status, 500);
}

TEST(RtspClientQuirks, MediaBeforeTheAnswerToPlayIsHandedOn)
{
    ClientWorld world;
    const auto camera = world.startAndAccept();
    const CameraRequest play = camera->serveUpTo("PLAY");
    camera->send(ScriptedCamera::packet(0, "early"));
    ASSERT_TRUE(world.events.waitPackets(1));
    camera->answer(play, "200 OK");
    EXPECT_TRUE(world.events.waitPlaying());
}

TEST(RtspClientQuirks, ACameraThatAnswersPlayByMediaAlonePlays)
{
    ClientWorld world;
    world.options.answerTimeout = 200ms;
    const auto camera = world.startAndAccept();
    camera->serve("OPTIONS");
    camera->serve("DESCRIBE", "", ClientWorld::oneTrack);
    camera->serve("SETUP", "Session: 1;timeout=2\r\n");
    const CameraRequest play = camera->expect("PLAY");
    camera->send(ScriptedCamera::packet(0, "media"));
    ASSERT_TRUE(world.events.waitPlaying());
    camera->answer(play, "200 OK");  // after all
    camera->serve("OPTIONS");
    EXPECT_EQ(world.state(), RtspClientState::playing);
}

TEST(RtspClientQuirks, TheCamerasOwnRequestsAreAnswered)
{
    ClientWorld world;
    const auto camera = world.startPlaying();
    for (const char* method : {"OPTIONS", "GET_PARAMETER", "SET_PARAMETER", "ANNOUNCE"})
    {
        camera->send(std::string(method) + " rtsp://x/ RTSP/1.0\r\nCSeq: 77\r\nContent-Length: 3\r\n\r\nabc");
        const CameraRequest answer = camera->request();
        EXPECT_EQ(answer.method + " " + answer.uri, "RTSP/1.0 200") << method;
        EXPECT_EQ(answer.header("CSeq"), "77");
    }
    camera->send("RECORD rtsp://x/ RTSP/1.0\r\n\r\n");
    EXPECT_EQ(camera->request().uri, "501");
    camera->send("REDIRECT rtsp://x/ RTSP/1.0\r\nCSeq: 1\r\nLocation: rtsp://y/\r\n\r\n");
    EXPECT_EQ(camera->request().uri, "200");
    ASSERT_TRUE(world.events.waitEnded());
    EXPECT_EQ(world.events.end().kind, Kind::endedByCamera);
}

TEST(RtspClientQuirks, TheKeepAliveIsWhatTheCameraOffers)
{
    const std::pair<const char*, const char*> cases[] = {
        {"Public: OPTIONS, GET_PARAMETER\r\n", "GET_PARAMETER"},
        {"Public: DESCRIBE, SET_PARAMETER\r\n", "SET_PARAMETER"},
        {"Public: OPTIONS, SET_PARAMETER\r\n", "OPTIONS"},
        {"", "OPTIONS"},
    };
    for (const auto& [headers, method] : cases)
    {
        ClientWorld world;
        const auto camera = world.startAndAccept();
        camera->serve("OPTIONS", headers);
        camera->serve("DESCRIBE", "", ClientWorld::oneTrack);
        camera->serve("SETUP", "Session: 1;timeout=1\r\n");
        camera->serve("PLAY");
        EXPECT_EQ(camera->expect(method).header("Session"), "1") << headers;
    }
}

TEST(RtspClientQuirks, AKeepAliveThatIsRefusedIsReplacedByOptions)
{
    ClientWorld world;
    const auto camera = world.startAndAccept();
    camera->serve("OPTIONS", "Public: GET_PARAMETER\r\n");
    camera->serve("DESCRIBE", "", ClientWorld::oneTrack);
    camera->serve("SETUP", "Session: 1;timeout=1\r\n");
    camera->serve("PLAY");
    camera->answer(camera->expect("GET_PARAMETER"), "451 Parameter Not Understood");
    camera->serve("OPTIONS");
    EXPECT_EQ(world.state(), RtspClientState::playing);
}

TEST(RtspClientQuirks, KeepAlivesThatNobodyAnswersEndNothing)
{
    ClientWorld world;
    const auto camera = world.startAndAccept();
    camera->serve("OPTIONS");
    camera->serve("DESCRIBE", "", ClientWorld::oneTrack);
    camera->serve("SETUP", "Session: 1;timeout=1\r\n");
    camera->serve("PLAY");
    camera->expect("OPTIONS");
    const CameraRequest second = camera->expect("OPTIONS");
    camera->answer(second, "200 OK");
    EXPECT_EQ(world.state(), RtspClientState::playing);
}

TEST(RtspClientQuirks, ReportsGoToTheTracksChannel)
{
    ClientWorld world;
    const auto camera = world.startPlaying(ClientWorld::twoTracks, 2);
    const std::uint8_t report[] = {1, 2, 3};
    runOn(world.loop,
          [&]
          {
              EXPECT_TRUE(world.client->sendReport(1, report, sizeof report));
              EXPECT_FALSE(world.client->sendReport(2, report, sizeof report));
              EXPECT_FALSE(world.client->sendReport(0, report, 0));
              EXPECT_FALSE(world.client->sendReport(0, report, 65536));
              world.client->stop();
              EXPECT_FALSE(world.client->sendReport(1, report, sizeof report));
          });
    camera->expect("TEARDOWN");
    ASSERT_EQ(camera->packets().size(), 1U);
    EXPECT_EQ(camera->packets()[0], ScriptedCamera::packet(3, "\1\2\3"));
}

}  // namespace
}  // namespace refhost

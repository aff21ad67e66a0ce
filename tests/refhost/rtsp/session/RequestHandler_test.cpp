#include "refhost/rtsp/session/RequestHandler.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "refhost/live/LiveDispatcher.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"

namespace refhost
{
namespace
{

using test::Received;
using test::TestClient;

class RequestHandlerFailures : public test::RtspServerFixture
{
};

class RequestHandlerTest : public test::RtspServerFixture
{
protected:
    void SetUp() override
    {
        start();
        client_ = std::make_unique<TestClient>(server->port());
    }

    std::unique_ptr<TestClient> client_;
};

TEST_F(RequestHandlerTest, OptionsListsTheMethodsForServerAndPresentation)
{
    const std::string methods =
        "OPTIONS, DESCRIBE, SETUP, PLAY, PAUSE, TEARDOWN, GET_PARAMETER, SET_PARAMETER";
    for (const std::string& target : {std::string("*"), url(), url("nobody/knows")})
    {
        const Received response = client_->request("OPTIONS", target);
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.header("Public"), methods);
        EXPECT_EQ(response.header("Server"), "ovrtspd");
        EXPECT_NE(response.header("Date"), "");
    }
}

TEST_F(RequestHandlerTest, DescribeShowsTheTracks)
{
    const Received response = client_->request("DESCRIBE", url(), "Accept: application/sdp\r\n");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.header("Content-Type"), "application/sdp");
    EXPECT_EQ(response.header("Content-Base"), url() + "/");
    EXPECT_NE(response.body.find("o=- "), std::string::npos);
    EXPECT_NE(response.body.find(" IN IP4 127.0.0.1\r\n"), std::string::npos);
    EXPECT_NE(response.body.find("m=video 0 RTP/AVP 96\r\n"), std::string::npos);
    EXPECT_NE(response.body.find("a=control:trackID=0\r\n"), std::string::npos);
    EXPECT_NE(response.body.find("m=audio 0 RTP/AVP 0\r\n"), std::string::npos);
    EXPECT_NE(response.body.find("a=control:trackID=1\r\n"), std::string::npos);
    EXPECT_EQ(server->sessionCount(), 0u);
}

TEST_F(RequestHandlerTest, DescribeTakesEveryFormOfTheUrl)
{
    for (const char* const path : {"orv/live/1/0/", "orv/live/1/0//", "orv/live/1/0?user=x",
                                   "orv/live/1/0/?a=b", "%6Frv/live/1/0", "orv/live/1/0/trackID=1"})
    {
        EXPECT_EQ(client_->request("DESCRIBE", url(path)).status, 200) << path;
    }
    EXPECT_EQ(client_->request("DESCRIBE", url("orv/live/1/0/?a=b")).header("Content-Base"), url() + "/");
    EXPECT_EQ(client_->request("DESCRIBE", "/orv/live/1/0").status, 200);
}

TEST_F(RequestHandlerTest, DescribeTakesEveryAcceptHeaderThatCoversSdp)
{
    for (const char* const accept : {"application/sdp", "APPLICATION/SDP;q=0.5", "*/*", "application/*",
                                     "text/html, application/sdp;level=1", "application/rtsl,\r\n */*"})
    {
        EXPECT_EQ(client_->request("DESCRIBE", url(), std::string("Accept: ") + accept + "\r\n").status, 200)
            << accept;
    }
}

struct StatusCase
{
    const char* name;
    const char* method;
    const char* path;  ///< follows the server's address; "*" alone is the server
    const char* headers;
    const char* body;
    int status;

    friend std::ostream& operator<<(std::ostream& out, const StatusCase& tested)
    {
        return out << tested.name;
    }
};

class RequestHandlerStatus : public RequestHandlerTest, public testing::WithParamInterface<StatusCase>
{
};

constexpr const char* anySession = "Session: 0123456789ABCDEF\r\n";

const StatusCase statusCases[] = {
    {"UnknownFamily", "DESCRIBE", "orv/film/1/0", "", "", 404},
    {"FamilyAlone", "DESCRIBE", "orv/live", "", "", 404},
    {"FamilyWithoutNumbers", "DESCRIBE", "orv/live/", "", "", 404},
    {"FamilyInCapitals", "DESCRIBE", "ORV/live/1/0", "", "", 404},
    {"FamilyFurtherBack", "DESCRIBE", "x/orv/live/1/0", "", "", 404},
    {"NoPath", "DESCRIBE", "", "", "", 404},
    {"UnknownCamera", "DESCRIBE", "orv/live/2/0", "", "", 404},
    {"NegativeCamera", "DESCRIBE", "orv/live/-1/0", "", "", 404},
    {"UnknownStream", "DESCRIBE", "orv/live/1/9", "", "", 404},
    {"StreamThatIsNoNumber", "DESCRIBE", "orv/live/1/x", "", "", 404},
    {"CameraBeyondEveryNumber", "DESCRIBE", "orv/live/99999999999999999999/0", "", "", 404},
    {"UnknownTrack", "DESCRIBE", "orv/live/1/0/trackID=7", "", "", 404},
    {"MalformedUrl", "DESCRIBE", "orv/live/1/%zz", "", "", 400},
    {"ServerUrlWhereAPresentationIsNeeded", "DESCRIBE", "*", "", "", 400},
    {"AcceptWithoutSdp", "DESCRIBE", "orv/live/1/0", "Accept: text/html\r\n", "", 406},
    {"EmptyAccept", "DESCRIBE", "orv/live/1/0", "Accept:\r\n", "", 406},
    {"Announce", "ANNOUNCE", "orv/live/1/0", "", "", 405},
    {"Record", "RECORD", "orv/live/1/0", "", "", 405},
    {"Redirect", "REDIRECT", "orv/live/1/0", "", "", 405},
    {"UnknownMethod", "BREW", "orv/live/1/0", "", "", 501},
    {"MethodInSmallLetters", "options", "*", "", "", 501},
    {"Require", "DESCRIBE", "orv/live/1/0", "Require: org.example.magic\r\n", "", 551},
    {"ProxyRequire", "OPTIONS", "*", "Proxy-Require: gzipped-messages\r\n", "", 551},
    {"OneUnknown", "DESCRIBE", "orv/live/1/0", "Require: www.onvif.org/ver20/backchannel, magic\r\n", "",
     551},
    {"ReplayOfALiveStream", "DESCRIBE", "orv/live/1/0", "Require: onvif-replay\r\n", "", 551},
    {"KnownFeatures", "OPTIONS", "*", "Require: onvif-replay, www.onvif.org/ver20/backchannel\r\n", "", 200},
    {"BackChannel", "DESCRIBE", "orv/live/1/0", "Require: www.onvif.org/ver20/backchannel\r\n", "", 200},
    {"KeepAliveWithoutSession", "GET_PARAMETER", "orv/live/1/0", "", "", 200},
    {"KeepAliveOfTheServer", "GET_PARAMETER", "*", "", "", 200},
    {"SetParameterWithoutBody", "SET_PARAMETER", "orv/live/1/0", "", "", 200},
    {"GetParameter", "GET_PARAMETER", "orv/live/1/0", "Content-Type: text/parameters\r\n", "position\r\n",
     451},
    {"GetParameterWithoutType", "GET_PARAMETER", "orv/live/1/0", "", "position\r\n", 451},
    {"SetParameter", "SET_PARAMETER", "orv/live/1/0", "Content-Type: text/parameters;charset=utf-8\r\n",
     "a: b\r\n", 451},
    {"ParameterOfAnotherType", "SET_PARAMETER", "orv/live/1/0", "Content-Type: text/html\r\n", "<a>", 415},
    {"KeepAliveOfNoSession", "GET_PARAMETER", "orv/live/1/0", anySession, "", 454},
    {"OptionsOfNoSession", "OPTIONS", "orv/live/1/0", anySession, "", 454},
    {"PlayWithoutSession", "PLAY", "orv/live/1/0", "", "", 454},
    {"PlayOfNoSession", "PLAY", "orv/live/1/0", anySession, "", 454},
    {"PlayOfAMalformedSession", "PLAY", "orv/live/1/0", "Session: ../../etc\r\n", "", 454},
    {"PauseWithoutSession", "PAUSE", "orv/live/1/0", "", "", 454},
    {"TeardownWithoutSession", "TEARDOWN", "orv/live/1/0", "", "", 454},
    {"TeardownOfNoSession", "TEARDOWN", "orv/live/1/0", anySession, "", 454},
    {"SetupOfNoSession", "SETUP", "orv/live/1/0/trackID=0",
     "Session: 0123456789ABCDEF\r\nTransport: RTP/AVP/TCP\r\n", "", 454},
    {"SetupWithoutTransport", "SETUP", "orv/live/1/0/trackID=0", "", "", 400},
    {"SetupOfMulticast", "SETUP", "orv/live/1/0/trackID=0", "Transport: RTP/AVP;multicast\r\n", "", 461},
    {"SetupToRecord", "SETUP", "orv/live/1/0/trackID=0",
     "Transport: RTP/AVP;unicast;client_port=5000-5001;mode=record\r\n", "", 461},
    {"SetupOfGarbage", "SETUP", "orv/live/1/0/trackID=0", "Transport: \x80\xff;;=,,\r\n", "", 461},
    {"SetupOfThePresentation", "SETUP", "orv/live/1/0", "Transport: RTP/AVP/TCP\r\n", "", 459},
    {"SetupOfAnUnknownTrack", "SETUP", "orv/live/1/0/trackID=7", "Transport: RTP/AVP/TCP\r\n", "", 404},
    {"SetupOfAnUnknownCamera", "SETUP", "orv/live/7/0/trackID=0", "Transport: RTP/AVP/TCP\r\n", "", 404},
    {"SetupOfAnUnknownFamily", "SETUP", "film/7/0/trackID=0", "Transport: RTP/AVP/TCP\r\n", "", 404},
};

TEST_P(RequestHandlerStatus, IsAnsweredAndLeavesTheServerAsItWas)
{
    const StatusCase& one = GetParam();
    const std::string target = std::string(one.path) == "*" ? "*" : url(one.path);
    EXPECT_EQ(client_->request(one.method, target, one.headers, one.body).status, one.status);
    EXPECT_EQ(client_->request("OPTIONS", "*").status, 200) << "the connection goes on";
    EXPECT_EQ(server->sessionCount(), 0u);
    EXPECT_EQ(LiveDispatcher::instance().trackCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Cases, RequestHandlerStatus, testing::ValuesIn(statusCases),
                         [](const auto& one) { return std::string(one.param.name); });

TEST_F(RequestHandlerTest, RefusesRequestsWithoutAUsableNumber)
{
    for (const char* const cseq :
         {"", "CSeq: \r\n", "CSeq: x\r\n", "CSeq: -1\r\n", "CSeq: 1 2\r\n", "CSeq: 99999999999999999999\r\n"})
    {
        client_->send(std::string("OPTIONS * RTSP/1.0\r\n") + cseq + "\r\n");
        const Received response = client_->response();
        EXPECT_EQ(response.status, 400) << cseq;
        EXPECT_EQ(response.headers.count("CSeq"), 0u);
    }
    EXPECT_EQ(client_->request("OPTIONS", "*").status, 200);
}

TEST_F(RequestHandlerTest, RefusesAnotherVersionAndGoesOn)
{
    client_->send("DESCRIBE " + url() + " RTSP/2.0\r\nCSeq: 9\r\n\r\n");
    const Received response = client_->response();
    EXPECT_EQ(response.status, 505);
    EXPECT_EQ(response.header("CSeq"), "9");
    EXPECT_EQ(client_->request("OPTIONS", "*").status, 200);
}

TEST_F(RequestHandlerTest, NamesWhatItDoesNotSupport)
{
    const Received response =
        client_->request("OPTIONS", "*", "Require: one, two\r\nRequire: three\r\nProxy-Require: four\r\n");
    EXPECT_EQ(response.status, 551);
    EXPECT_EQ(response.header("Unsupported"), "one, two, three, four");
}

TEST_F(RequestHandlerTest, NamesTheAllowedMethods)
{
    EXPECT_NE(client_->request("RECORD", url()).header("Allow").find("DESCRIBE"), std::string::npos);
    EXPECT_NE(client_->request("BREW", url()).header("Public").find("DESCRIBE"), std::string::npos);
}

TEST_F(RequestHandlerTest, EndsTheConnectionWhenTheClientAsksForIt)
{
    const Received response = client_->request("OPTIONS", "*", "Connection: close\r\n");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.header("Connection"), "close");
    EXPECT_TRUE(client_->ended());
}

TEST_F(RequestHandlerTest, EndsTheConnectionWhereTheNextRequestCannotBeFound)
{
    client_->send("DESCRIBE " + url() + " RTSP/1.0\r\nCSeq: 3\r\nContent-Length: -1\r\n\r\nOPTIONS");
    const Received response = client_->response();
    EXPECT_EQ(response.status, 400);
    EXPECT_EQ(response.header("CSeq"), "3");
    EXPECT_EQ(response.header("Connection"), "close");
    EXPECT_TRUE(client_->ended());
    EXPECT_EQ(server->connectionCount(), 1u) << "the client has time to read the answer";
    time.advance(std::chrono::milliseconds(2000));
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 0; }));
}

TEST_F(RequestHandlerTest, BoundsRequestLineHeadersAndBody)
{
    const struct
    {
        std::string request;
        int status;
    } cases[] = {{"DESCRIBE rtsp://h/" + std::string(20000, 'a'), 414},
                 {"OPTIONS * RTSP/1.0\r\nX: " + std::string(20000, 'a'), 400},
                 {"OPTIONS * RTSP/1.0\r\nContent-Length: 1000000\r\n\r\n", 413},
                 {std::string("\x16\x03\x01\x02\x00", 5), 400}};
    for (const auto& one : cases)
    {
        TestClient client(server->port());
        client.send(one.request);
        EXPECT_EQ(client.response().status, one.status);
        EXPECT_TRUE(client.ended());
    }
}

/// Misuses its handle, as a controller with a fault would.
class FailingFactory : public IRTSPControllerFactory
{
public:
    int createMedia(const std::string&, SafePointer<IRTSPController>& out, bool) override
    {
        return out->mediaInit();
    }
};

TEST_F(RequestHandlerFailures, AFailureInsideIs500AndTheServerGoesOn)
{
    MediaRoutes::Route broken;
    broken.prefix = "broken";
    broken.factory = SafePointer<IRTSPControllerFactory>(new FailingFactory);
    routes.add(broken);
    start();
    TestClient client(server->port());
    EXPECT_EQ(client.request("DESCRIBE", url("broken/1")).status, 500);
    EXPECT_EQ(client.request("SETUP", url("broken/1/trackID=0"), tcp).status, 500);
    EXPECT_EQ(client.request("DESCRIBE", url()).status, 200);
    EXPECT_EQ(server->sessionCount(), 0u);
}

}  // namespace
}  // namespace refhost

// Recordings through the route of live media: ?start=.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "refhost/http/LiveRoute.h"
#include "refhost/http/RecordedSocket.h"
#include "refhost/media/Device.h"
#include "tests/refhost/export/ExportFixture.h"
#include "tests/refhost/fragments/OneCamera.h"
#include "tests/refhost/http/HttpServiceFixture.h"
#include "tests/refhost/http/ServerMessages.h"

namespace refhost
{
namespace test
{
namespace
{

using Message = ServerMessages::Message;
using testing::HasSubstr;

class Recorded : public ExportTest
{
public:
    using ExportTest::index_;
    using ExportTest::record;
    using MadeUnits::at;

private:
    void TestBody() override {}
};

class RecordedLiveTest : public HttpServiceFixture
{
protected:
    RecordedLiveTest()
    {
        Device::setStreams(cameras_);
    }
    ~RecordedLiveTest() override
    {
        service.reset();
        Device::setStreams(nullptr);
    }

    std::shared_ptr<const RecordingDirectory> directory() const
    {
        return std::make_shared<const IndexedRecordings>(recorded_.index_);
    }

    void serve()
    {
        HttpService& made = make();
        LiveRoute::add(made.router(), users->rights, streams_,
                       {made.background(), [this] { return directory(); }});
        start();
    }

    static std::string target(double begin, const std::string& more = "")
    {
        return "/api/v1/cameras/1/streams/0/live?start=" + timeText(begin) + more;
    }

    /// Without the nanoseconds that recordings begin with: a millisecond later.
    static std::string timeText(double time)
    {
        return std::to_string(secondsOf(Recorded::at(time).time_since_epoch()) + 0.001);
    }

    bool connect(HttpTestClient& client, const std::string& target, const std::string& headers = "")
    {
        return client.get(target, handshake + headers).status == 101;
    }

    /// All messages up to the close frame.
    std::vector<Message> all(HttpTestClient& client)
    {
        std::vector<Message> all;
        for (auto message = messages_.next(client); message; message = messages_.next(client))
        {
            if (message->opcode == 8)
            {
                closed_ = true;
                return all;
            }
            all.push_back(*message);
        }
        return all;
    }

    static bool isFragment(const Message& message)
    {
        return message.opcode == 2 && Mp4Box::find(message.span(), "moof").has_value();
    }

    static double decodeOf(const Message& fragment)
    {
        return static_cast<double>(Mp4Box::find(fragment.span(), "moof/traf/tfdt")->number(4, 8)) / 90000;
    }

    /// The next message, which is a text.
    nlohmann::json text(HttpTestClient& client)
    {
        const auto message = messages_.next(client);
        EXPECT_TRUE(message && message->opcode == 1);
        return message && message->opcode == 1 ? message->json() : nlohmann::json();
    }

    /// Skips the description, the init segment and the first range. \returns the last
    nlohmann::json skipHead(HttpTestClient& client)
    {
        EXPECT_EQ(text(client)["type"], "description");
        EXPECT_TRUE(messages_.next(client));
        return text(client);
    }

    /// Fragments until none comes for what the server may send.
    double lastUntil(HttpTestClient& client, double until)
    {
        double last = 0;
        while (last < until - 0.05)
        {
            const auto message = messages_.next(client);
            EXPECT_TRUE(message);
            if (!message)
            {
                break;
            }
            EXPECT_TRUE(isFragment(*message));
            last = decodeOf(*message);
        }
        return last;
    }

    static UserConfig user(const std::string& live, const std::string& playback)
    {
        UserConfig made;
        made.name = "boss";
        made.password = "secret";
        made.grants.live = live;
        made.grants.playback = playback;
        return made;
    }

    Recorded recorded_;
    std::shared_ptr<OneCamera> cameras_ = std::make_shared<OneCamera>();
    std::shared_ptr<FragmentStreams> streams_ = std::make_shared<FragmentStreams>(HostClock::system());
    ServerMessages messages_;
    bool closed_ = false;
    const std::string boss_ = basic("Ym9zczpzZWNyZXQ=");
};

TEST_F(RecordedLiveTest, RecordingsComeAsLiveMediaDoWithWhereTheInstantIs)
{
    recorded_.record(0, 4);
    serve();
    HttpTestClient client(service->port());
    ASSERT_TRUE(connect(client, target(2.5)));
    const auto description = text(client);
    EXPECT_EQ(description["type"], "description");
    EXPECT_EQ(description["mime"], "video/mp4; codecs=\"avc1.42C00D\"");
    EXPECT_TRUE(Mp4Box::find(messages_.next(client)->span(), "moov/mvex"));
    const auto range = text(client);
    EXPECT_EQ(range["type"], "range");
    EXPECT_EQ(range["date"], "2026-01-01T00:00:02.123Z");
    EXPECT_EQ(range["direction"], 1);
    EXPECT_NEAR(range["position"].get<double>() - range["media"].get<double>(), 0.501, 0.0011);
    const std::vector<Message> rest = all(client);
    ASSERT_EQ(rest.size(), 51U);
    for (std::size_t i = 0; i < 50; ++i)
    {
        EXPECT_NEAR(decodeOf(rest[i]), range["media"].get<double>() + static_cast<double>(i) / 25, 0.002);
    }
    EXPECT_EQ(rest.back().json(), (nlohmann::json{{"type", "end"}, {"reason", "end"}}));
    EXPECT_TRUE(closed_);
    EXPECT_TRUE(eventually([this] { return service->connectionCount() == 0; }));
}

TEST_F(RecordedLiveTest, GapsAreReported)
{
    recorded_.record(0, 2);
    recorded_.record(10, 11);
    serve();
    HttpTestClient client(service->port());
    ASSERT_TRUE(connect(client, target(0)));
    std::vector<std::string> dates;
    for (const Message& message : all(client))
    {
        if (message.opcode == 1 && message.json()["type"] == "range")
        {
            dates.push_back(message.json()["date"]);
        }
    }
    EXPECT_THAT(dates, testing::ElementsAre("2026-01-01T00:00:00.123Z", "2026-01-01T00:00:10.123Z"));
}

TEST_F(RecordedLiveTest, WhereNothingWasRecordedThatIsSaid)
{
    recorded_.record(0, 2);
    serve();
    HttpTestClient client(service->port());
    ASSERT_TRUE(connect(client, target(100)));
    const auto messages = all(client);
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].json(), (nlohmann::json{{"type", "end"}, {"reason", "nothing"}}));
    EXPECT_TRUE(closed_);
}

TEST_F(RecordedLiveTest, NoMoreIsSentThanTheClientWants)
{
    recorded_.record(0, 60);
    serve();
    HttpTestClient client(service->port());
    ASSERT_TRUE(connect(client, target(5, "&ahead=2")));
    const auto range = skipHead(client);
    const double position = range["position"];
    EXPECT_LE(lastUntil(client, position + 2), position + 2);
    client.send(ServerMessages::masked(9, "more?"));
    auto message = messages_.next(client);
    while (message && message->opcode == 2)
    {
        EXPECT_LE(decodeOf(*message), position + 2);
        message = messages_.next(client);
    }
    ASSERT_TRUE(message);
    EXPECT_EQ(message->opcode, 10);
    // Lines may come in several messages, and several at once.
    const std::string line = std::to_string(position + 10) + "\n";
    client.send(ServerMessages::masked(1, line.substr(0, 3)) + ServerMessages::masked(1, line.substr(3)));
    EXPECT_LE(lastUntil(client, position + 10), position + 10);
    client.send(ServerMessages::masked(1, "1\n2\n1e3\n"));
    closed_ = false;
    const auto rest = all(client);
    EXPECT_TRUE(closed_);
    EXPECT_EQ(rest.back().json()["reason"], "end");
}

TEST_F(RecordedLiveTest, LinesThatAreNoPlacesEndTheConnection)
{
    recorded_.record(0, 60);
    serve();
    for (const std::string& line :
         {std::string("x\n"), std::string("\n"), std::string("-1\n"), std::string("nan\n"),
          std::string("inf\n"), std::string("1e300\n"), std::string("12 \n"), std::string(40, '1')})
    {
        HttpTestClient client(service->port());
        messages_ = {};
        closed_ = false;
        ASSERT_TRUE(connect(client, target(5, "&ahead=0")));
        client.send(ServerMessages::masked(1, line));
        all(client);
        EXPECT_TRUE(closed_) << line;
    }
    EXPECT_TRUE(eventually([this] { return service->connectionCount() == 0; }));
}

TEST_F(RecordedLiveTest, BackwardsAndFastThereAreKeyFramesOnly)
{
    recorded_.record(0, 20);
    serve();
    for (const auto& [query, count] : {std::pair("&speed=-1", 11U), std::pair("&speed=8", 10U),
                                       std::pair("&speed=4", 250U), std::pair("&speed=-16", 11U)})
    {
        HttpTestClient client(service->port());
        messages_ = {};
        ASSERT_TRUE(connect(client, target(10, query)));
        const auto range = skipHead(client);
        EXPECT_EQ(range["direction"], query[7] == '-' ? -1 : 1);
        EXPECT_EQ(all(client).size(), count + 1) << query;
    }
}

TEST_F(RecordedLiveTest, WrongQueriesAreRefused)
{
    recorded_.record(0, 2);
    serve();
    const std::string path = "/api/v1/cameras/1/streams/0/live";
    const struct
    {
        std::string target;
        const char* said;
    } cases[] = {
        {path + "?start=", "start"},
        {path + "?start=yesterday", "start"},
        {path + "?start=-1", "start"},
        {target(1, "&end=x"), "end"},
        {target(1, "&end=" + timeText(1)), "end"},
        {target(1, "&end=" + timeText(2) + "&speed=-1"), "end"},
        {target(1, "&speed=0"), "speed"},
        {target(1, "&speed=0.2"), "speed"},
        {target(1, "&speed=16.1"), "speed"},
        {target(1, "&speed=-17"), "speed"},
        {target(1, "&speed=nan"), "speed"},
        {target(1, "&speed=inf"), "speed"},
        {target(1, "&speed=fast"), "speed"},
        {target(1, "&speed="), "speed"},
        {target(1, "&ahead=-1"), "ahead"},
        {target(1, "&ahead=4000"), "ahead"},
        {target(1, "&ahead=nan"), "ahead"},
    };
    for (const auto& row : cases)
    {
        const HttpAnswer answer = get(row.target, handshake);
        EXPECT_EQ(answer.status, 400) << row.target;
        EXPECT_THAT(answer.body, HasSubstr("parameter " + std::string(row.said))) << row.target;
    }
    EXPECT_EQ(get("/api/v1/cameras/2/streams/0/live?start=1", handshake).status, 404);
    EXPECT_EQ(get(target(1)).status, 426) << "no WebSocket";
    EXPECT_EQ(get(target(1), handshake + "Origin: http://evil.example\r\n").status, 403);
}

TEST_F(RecordedLiveTest, NeedsTheRightToPlayTheCamerasRecordings)
{
    recorded_.record(0, 2);
    config.users = {user("", "1")};
    serve();
    EXPECT_EQ(get(target(1), handshake).status, 401);
    EXPECT_EQ(get(target(1), handshake + boss_).status, 101) << "live is not needed";
    EXPECT_EQ(get("/api/v1/cameras/1/streams/0/live", handshake + boss_).status, 403);
    users->setUsers({user("1", "")}, {});
    EXPECT_EQ(get(target(1), handshake + boss_).status, 403) << "live does not suffice";
    EXPECT_EQ(get("/api/v1/cameras/1/streams/0/live", handshake + boss_).status, 101);
}

TEST_F(RecordedLiveTest, WhoLosesTheRightIsEnded)
{
    recorded_.record(0, 60);
    config.users = {user("1", "1")};
    serve();
    HttpTestClient client(service->port());
    ASSERT_TRUE(connect(client, target(5, "&ahead=1"), boss_));
    skipHead(client);
    users->setUsers({user("1", "")}, {});
    // It is noticed while nothing is sent, too.
    time.advance(std::chrono::seconds(20));
    all(client);
    EXPECT_TRUE(closed_);
}

TEST_F(RecordedLiveTest, WatchersOfACameraThatIsGoneAreEnded)
{
    recorded_.record(0, 60);
    serve();
    HttpTestClient client(service->port());
    ASSERT_TRUE(connect(client, target(5, "&ahead=1")));
    skipHead(client);
    cameras_->replace(nullptr);
    time.advance(std::chrono::seconds(20));
    all(client);
    EXPECT_TRUE(closed_);
}

TEST_F(RecordedLiveTest, ConnectionsBeyondTheLimitAreRefused)
{
    recorded_.record(0, 2);
    config.http.connections = 2 * LiveRoute::maxRecorded;
    config.http.connectionsPerAddress = 2 * LiveRoute::maxRecorded;
    serve();
    std::vector<std::unique_ptr<HttpTestClient>> watchers;
    for (int i = 0; i < LiveRoute::maxRecorded; ++i)
    {
        watchers.push_back(std::make_unique<HttpTestClient>(service->port()));
        ASSERT_TRUE(connect(*watchers.back(), target(1, "&ahead=0"))) << i;
    }
    const HttpAnswer refused = get(target(1), handshake);
    EXPECT_EQ(refused.status, 503);
    EXPECT_FALSE(refused.field("Retry-After").empty());
    watchers.clear();
    EXPECT_TRUE(eventually([this] { return get(target(1), handshake).status == 101; }));
}

TEST_F(RecordedLiveTest, ForAClientThatReadsNothingOnlyALittleIsMade)
{
    recorded_.record(0, 240);
    BackgroundWork work(1);
    RecordedSocket::Options options;
    options.request.cameraId = 1;
    options.request.start = Recorded::at(0);
    options.permitted = [] { return true; };
    const auto socket =
        std::make_shared<RecordedSocket>(work, directory(), HostClock::system(), std::move(options));
    std::atomic<int> wakes{0};
    socket->start([&] { ++wakes; });
    // Each turn makes a quarter of it.
    ASSERT_TRUE(eventually([&] { return wakes >= 4; }));
    std::string out;
    EXPECT_EQ(socket->read(std::numeric_limits<std::size_t>::max(), out), BodySource::State::more);
    EXPECT_GE(out.size(), RecordedSocket::maxAhead);
    EXPECT_LE(out.size(), RecordedSocket::maxAhead + 100'000);
    ASSERT_TRUE(eventually([&] { return wakes >= 8; })) << "what was read is made again";
    socket->cancel();
    work.close();
}

}  // namespace
}  // namespace test
}  // namespace refhost

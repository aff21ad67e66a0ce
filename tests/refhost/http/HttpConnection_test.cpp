// Bodies that are made while they are sent, and clients that are slow or vanish.
#include "refhost/http/HttpConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "refhost/http/BackgroundBody.h"
#include "tests/refhost/http/HttpServiceFixture.h"

namespace refhost
{
namespace
{

using test::HttpAnswer;
using test::HttpTestClient;

/// What became of a body.
struct Watched
{
    std::atomic<std::size_t> made{0};
    std::atomic<bool> cancelled{false};
    std::atomic<bool> destroyed{false};
};

/// Makes `parts` times 10000 bytes, and then ends or fails.
class Parts final : public BodyProducer
{
public:
    Parts(std::shared_ptr<Watched> watched, std::size_t parts, bool fails = false)
        : watched_(std::move(watched)), parts_(parts), fails_(fails)
    {
    }
    ~Parts() override
    {
        watched_->destroyed = true;
    }

    bool produce(std::string& out) override
    {
        if (parts_ == 0)
        {
            throw std::runtime_error("no more");
        }
        out.append(10000, static_cast<char>('a' + parts_ % 26));
        watched_->made += 10000;
        return --parts_ > 0 || fails_;
    }

private:
    const std::shared_ptr<Watched> watched_;
    std::size_t parts_;
    const bool fails_;
};

/// Waits for the test.
class HandFedBody final : public BodySource
{
public:
    explicit HandFedBody(std::shared_ptr<Watched> watched) : watched_(std::move(watched)) {}
    ~HandFedBody() override
    {
        watched_->destroyed = true;
    }

    void start(std::function<void()> wake) override
    {
        const MutexLock guard(mutex_);
        wake_ = std::move(wake);
    }
    State read(std::size_t, std::string& out) override
    {
        const MutexLock guard(mutex_);
        out += std::exchange(next_, {});
        return ends_ ? State::ended : State::waiting;
    }
    void cancel() override
    {
        watched_->cancelled = true;
    }

    void feed(const std::string& bytes, bool ends = false)
    {
        const MutexLock guard(mutex_);
        next_ += bytes;
        ends_ = ends;
        wake_();
    }
    bool started()
    {
        const MutexLock guard(mutex_);
        return wake_ != nullptr;
    }

private:
    const std::shared_ptr<Watched> watched_;
    Mutex mutex_;
    std::function<void()> wake_ OV_GUARDED_BY(mutex_);
    std::string next_ OV_GUARDED_BY(mutex_);
    bool ends_ OV_GUARDED_BY(mutex_) = false;
};

class HttpConnectionTest : public test::HttpServiceFixture
{
protected:
    /// GET /body sends a body of the background.
    void routeParts(std::size_t parts, bool fails = false, std::optional<std::uint64_t> length = std::nullopt)
    {
        route("GET", "/body",
              [this, parts, fails, length](const HttpRequest&)
              {
                  auto producer = std::make_unique<Parts>(watched, parts, fails);
                  BackgroundWork& work = service->background();
                  return HttpReply::stream(
                      "video/mp4", BackgroundBody::make(work, work.admit(), std::move(producer)), length);
              });
    }

    void routeHandFed()
    {
        route("GET", "/body", [this](const HttpRequest&) { return HttpReply::stream("text/plain", body); });
    }

    std::shared_ptr<Watched> watched = std::make_shared<Watched>();
    std::shared_ptr<HandFedBody> body = std::make_shared<HandFedBody>(watched);
};

TEST_F(HttpConnectionTest, ABodyOfTheBackgroundArrivesWhole)
{
    routeParts(300);
    start();
    HttpTestClient client(service->port());
    for (int i = 0; i < 2; ++i)
    {
        const HttpAnswer answer = client.get("/body");
        EXPECT_TRUE(answer.complete);
        EXPECT_EQ(answer.body.size(), 3000000U);
        EXPECT_EQ(answer.field("transfer-encoding"), "chunked");
    }
    EXPECT_TRUE(eventually([this] { return service->background().count() == 0; }));
}

TEST_F(HttpConnectionTest, ABodyOfKnownLengthComesWithoutChunks)
{
    routeParts(3, false, 30000);
    start();
    HttpTestClient client(service->port());
    const HttpAnswer answer = client.get("/body");
    EXPECT_EQ(answer.field("content-length"), "30000");
    EXPECT_TRUE(answer.complete);
    EXPECT_EQ(client.get("/body").status, 200);
}

TEST_F(HttpConnectionTest, ABodyThatIsShorterThanAnnouncedCutsTheConnection)
{
    routeParts(3, false, 30001);
    start();
    HttpTestClient client(service->port());
    EXPECT_FALSE(client.get("/body").complete);
    EXPECT_TRUE(client.ended());
}

TEST_F(HttpConnectionTest, ABodyThatIsLongerThanAnnouncedIsCutOff)
{
    routeParts(3, false, 15000);
    start();
    HttpTestClient client(service->port());
    EXPECT_EQ(client.get("/body").body.size(), 15000U);
    EXPECT_EQ(client.get("/body").status, 200);
}

TEST_F(HttpConnectionTest, AnHttp10ClientGetsABodyUntilTheEndOfTheConnection)
{
    routeParts(30);
    start();
    HttpTestClient client(service->port());
    client.send("GET /body HTTP/1.0\r\n\r\n");
    EXPECT_EQ(client.answer().body.size(), 300000U);
}

TEST_F(HttpConnectionTest, ABodyThatFailsCutsTheConnection)
{
    routeParts(3, true);
    start();
    HttpTestClient client(service->port());
    EXPECT_FALSE(client.get("/body").complete);
    EXPECT_TRUE(client.ended());
    EXPECT_TRUE(eventually([this] { return service->background().count() == 0; }));
}

TEST_F(HttpConnectionTest, HeadMakesNoBody)
{
    routeParts(3);
    start();
    HttpTestClient client(service->port());
    EXPECT_EQ(client.request("HEAD", "/body").status, 200);
    EXPECT_TRUE(eventually([this] { return service->background().count() == 0; }));
    EXPECT_EQ(watched->made, 0U);
}

TEST_F(HttpConnectionTest, AClientThatDoesNotReadHoldsTheMakerUpAndIsClosedInTime)
{
    routeParts(100000);
    start();
    HttpTestClient client(service->port(), 4096);
    client.send(HttpTestClient::text("GET", "/body"));
    std::size_t before = 1;
    // What is made stops growing: the buffers of both sides are full.
    EXPECT_TRUE(eventually(
        [&]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            return std::exchange(before, watched->made.load()) == watched->made && before > 0;
        }));
    EXPECT_LT(watched->made, 8U << 20U);
    time.advance(std::chrono::seconds(config.http.requestTimeout + 1));
    EXPECT_TRUE(eventually([this] { return service->connectionCount() == 0; }));
    EXPECT_TRUE(eventually([this] { return watched->destroyed.load(); }));
    EXPECT_TRUE(eventually([this] { return service->background().count() == 0; }));
}

TEST_F(HttpConnectionTest, AClientThatVanishesEndsItsBody)
{
    routeParts(100000);
    start();
    HttpTestClient client(service->port());
    client.send(HttpTestClient::text("GET", "/body"));
    EXPECT_FALSE(client.raw().empty());
    client.close(true);
    EXPECT_TRUE(eventually([this] { return watched->destroyed.load(); }));
    EXPECT_TRUE(eventually([this] { return service->connectionCount() == 0; }));
}

TEST_F(HttpConnectionTest, ABodyThatWaitsIsSentAsItComes)
{
    routeHandFed();
    start();
    HttpTestClient client(service->port());
    client.send(HttpTestClient::text("GET", "/body"));
    EXPECT_TRUE(eventually([this] { return body->started(); }));
    // It may wait longer than a client may.
    time.advance(std::chrono::hours(1));
    body->feed("one ");
    std::string came;
    while (came.find("one ") == std::string::npos)
    {
        const std::string more = client.raw();
        ASSERT_FALSE(more.empty());
        came += more;
    }
    body->feed("two", true);
    while (came.find("0\r\n\r\n") == std::string::npos)
    {
        const std::string more = client.raw();
        ASSERT_FALSE(more.empty());
        came += more;
    }
    EXPECT_NE(came.find("3\r\ntwo\r\n"), std::string::npos) << came;
    EXPECT_FALSE(watched->cancelled);
}

TEST_F(HttpConnectionTest, AClientThatResetsCancelsABodyThatWaits)
{
    routeHandFed();
    start();
    HttpTestClient client(service->port());
    client.send(HttpTestClient::text("GET", "/body"));
    EXPECT_TRUE(eventually([this] { return body->started(); }));
    client.close(true);
    EXPECT_TRUE(eventually([this] { return watched->cancelled.load(); }));
}

TEST_F(HttpConnectionTest, StopCancelsBodies)
{
    routeHandFed();
    start();
    HttpTestClient client(service->port());
    client.send(HttpTestClient::text("GET", "/body"));
    EXPECT_TRUE(eventually([this] { return body->started(); }));
    service->stop();
    EXPECT_TRUE(watched->cancelled);
    body->feed("late");
}

TEST_F(HttpConnectionTest, RequestsThatFollowAreHeldUpWhileABodyIsSent)
{
    routeHandFed();
    route("GET", "/next", [](const HttpRequest&) { return HttpReply::of("text/plain", "next"); });
    start();
    HttpTestClient client(service->port());
    client.send(HttpTestClient::text("GET", "/body") + HttpTestClient::text("GET", "/next"));
    EXPECT_TRUE(eventually([this] { return body->started(); }));
    // More than the connection takes meanwhile: the rest waits in the network.
    const std::string filler = HttpTestClient::text("GET", "/next", "X: " + std::string(1000, 'x') + "\r\n");
    std::string many;
    for (int i = 0; i < 60; ++i)
    {
        many += filler;
    }
    client.send(many);
    body->feed("x", true);
    EXPECT_EQ(client.answer().body, "x");
    for (int i = 0; i < 61; ++i)
    {
        ASSERT_EQ(client.answer().body, "next") << i;
    }
}

}  // namespace
}  // namespace refhost

#include "refhost/http/HttpService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>
#include <vector>

#include "tests/refhost/http/HttpServiceFixture.h"

namespace refhost
{
namespace
{

using test::HttpAnswer;
using test::HttpTestClient;
using testing::HasSubstr;

class HttpServiceTest : public test::HttpServiceFixture
{
protected:
    static HttpReply echo(const HttpRequest& request)
    {
        return HttpReply::of("text/plain", request.head.method + " " + request.user + "|" + request.body);
    }
};

TEST_F(HttpServiceTest, AnswersARequestAndKeepsTheConnection)
{
    route("GET", "/a/{part}",
          [](const HttpRequest& request) { return HttpReply::of("text/plain", request.part("part")); });
    start();
    HttpTestClient client(service->port());
    for (const std::string part : {"one", "two"})
    {
        const HttpAnswer answer = client.get("/a/" + part);
        EXPECT_EQ(answer.status, 200);
        EXPECT_EQ(answer.body, part);
        EXPECT_EQ(answer.field("connection"), "keep-alive");
        EXPECT_EQ(answer.field("x-content-type-options"), "nosniff");
        EXPECT_EQ(answer.field("cache-control"), "no-store");
    }
    EXPECT_EQ(service->connectionCount(), 1U);
    EXPECT_EQ(service->requestCount(), 2U);
}

TEST_F(HttpServiceTest, AnEmptyListenStartsNothing)
{
    config.http.listen = "";
    start();
    EXPECT_EQ(service->port(), 0);
}

TEST_F(HttpServiceTest, APortInUseIsAnError)
{
    start();
    ServerConfig second = config;
    second.http.listen = "127.0.0.1:" + std::to_string(service->port());
    HttpService other(second, *users);
    std::string error;
    EXPECT_FALSE(other.start(error));
    EXPECT_THAT(error, HasSubstr("http: cannot listen on 127.0.0.1 port "));
    EXPECT_EQ(other.port(), 0);
}

TEST_F(HttpServiceTest, AnswersPipelinedRequestsInOrder)
{
    route("GET", "/{n}",
          [](const HttpRequest& request) { return HttpReply::of("text/plain", request.part("n")); });
    start();
    HttpTestClient client(service->port());
    client.send(HttpTestClient::text("GET", "/1") + HttpTestClient::text("GET", "/2") +
                HttpTestClient::text("GET", "/3"));
    for (const std::string number : {"1", "2", "3"})
    {
        EXPECT_EQ(client.answer().body, number);
    }
}

TEST_F(HttpServiceTest, SeparatesUnknownPathsFromUnknownMethods)
{
    route("GET", "/a", echo);
    route("PUT", "/a", echo);
    start();
    HttpTestClient client(service->port());
    EXPECT_EQ(client.get("/b").status, 404);
    EXPECT_EQ(client.get("/a/").status, 404);
    const HttpAnswer other = client.request("DELETE", "/a");
    EXPECT_EQ(other.status, 405);
    EXPECT_EQ(other.field("allow"), "GET, HEAD, PUT");
    EXPECT_EQ(other.field("content-type"), "application/problem+json");
}

TEST_F(HttpServiceTest, HeadHasTheFieldsOfGetWithoutTheBody)
{
    route("GET", "/a", [](const HttpRequest&) { return HttpReply::of("text/plain", "12345"); });
    start();
    HttpTestClient client(service->port());
    const HttpAnswer head = client.request("HEAD", "/a");
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.field("content-length"), "5");
    EXPECT_EQ(client.get("/a").body, "12345");
}

TEST_F(HttpServiceTest, AHandlerThatThrowsIsAnsweredWith500)
{
    route("GET", "/a", [](const HttpRequest&) -> HttpReply { throw std::runtime_error("hidden reason"); });
    start();
    const HttpAnswer answer = get("/a");
    EXPECT_EQ(answer.status, 500);
    EXPECT_THAT(answer.body, testing::Not(HasSubstr("hidden")));
}

TEST_F(HttpServiceTest, BadRequestsGetAnErrorAndTheConnectionEnds)
{
    config.http.headerBytes = 1024;
    config.http.bodyBytes = 100;
    route("POST", "/a", echo);
    start();
    const std::string json = "Content-Type: application/json\r\n";
    const std::vector<std::pair<std::string, int>> cases{
        {"nonsense\r\n\r\n", 400},
        {"GET /a HTTP/3.0\r\n\r\n", 400},
        {"GET /a HTTP/1.1\r\nHost\r\n\r\n", 400},
        {"GET /a HTTP/1.1\r\nX: " + std::string(2000, 'x') + "\r\n\r\n", 431},
        {"GET /" + std::string(5000, 'x'), 431},
        {HttpTestClient::text("POST", "/a", json, std::string(101, 'x')), 413},
        {HttpTestClient::text("POST", "/a", json + "Content-Length: 1\r\nContent-Length: 2\r\n", ""), 400},
        {HttpTestClient::text("POST", "/a", json + "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n", ""),
         400},
    };
    for (const auto& [request, status] : cases)
    {
        HttpTestClient client(service->port());
        client.trySend(request);
        const HttpAnswer answer = client.answer();
        EXPECT_EQ(answer.status, status) << request.substr(0, 100);
        EXPECT_EQ(answer.field("connection"), "close");
        EXPECT_TRUE(client.ended());
    }
    HttpTestClient client(service->port());
    EXPECT_EQ(client.request("POST", "/a", json, std::string(100, 'x')).status, 200);
}

TEST_F(HttpServiceTest, ReadsABodyInChunks)
{
    route("POST", "/a", echo);
    start();
    HttpTestClient client(service->port());
    client.send(HttpTestClient::text("POST", "/a",
                                     "Content-Type: application/json\r\nTransfer-Encoding: chunked\r\n") +
                "3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n");
    EXPECT_EQ(client.answer().body, "POST |abcde");
}

TEST_F(HttpServiceTest, AsksForABodyThatTheClientHoldsBack)
{
    route("POST", "/a", echo);
    start();
    HttpTestClient client(service->port());
    client.send(HttpTestClient::text(
        "POST", "/a", "Content-Type: application/json\r\nExpect: 100-continue\r\nContent-Length: 3\r\n"));
    EXPECT_EQ(client.answer().status, 100);
    client.send("abc");
    EXPECT_EQ(client.answer().body, "POST |abc");
}

TEST_F(HttpServiceTest, AnHttp10ClientGetsNoKeepAliveAndNoChunks)
{
    route("GET", "/a", [](const HttpRequest&) { return HttpReply::of("text/plain", "x"); });
    start();
    HttpTestClient client(service->port());
    client.send("GET /a HTTP/1.0\r\n\r\n");
    const HttpAnswer answer = client.answer();
    EXPECT_EQ(answer.body, "x");
    EXPECT_EQ(answer.field("connection"), "close");
    EXPECT_TRUE(client.ended());
}

TEST_F(HttpServiceTest, AClientThatEndedItsSendingGetsItsReply)
{
    std::promise<void> go;
    const auto going = go.get_future().share();
    route(
        "GET", "/a",
        [going](const HttpRequest&)
        {
            going.wait();
            return HttpReply::of("text/plain", "x");
        },
        HttpAccess::open(), true);
    start();
    HttpTestClient client(service->port());
    client.send(HttpTestClient::text("GET", "/a"));
    client.endSending();
    go.set_value();
    EXPECT_EQ(client.answer().body, "x");
    EXPECT_TRUE(client.ended());
}

TEST_F(HttpServiceTest, ConnectionsBeyondTheLimitAreClosed)
{
    config.http.connections = 3;
    config.http.connectionsPerAddress = 2;
    route("GET", "/a", echo);
    start();
    HttpTestClient one(service->port());
    EXPECT_EQ(one.get("/a").status, 200);
    HttpTestClient two(service->port());
    EXPECT_EQ(two.get("/a").status, 200);
    HttpTestClient third(service->port());
    EXPECT_TRUE(third.ended());
    one.close();
    EXPECT_TRUE(eventually([this] { return service->connectionCount() == 1; }));
    EXPECT_EQ(get("/a").status, 200);
}

TEST_F(HttpServiceTest, RequestsBeyondTheRateAreRefused)
{
    config.http.rate = 2;
    route("GET", "/a", echo);
    start();
    HttpTestClient client(service->port());
    int good = 0;
    for (int i = 0; i < 10; ++i)
    {
        const HttpAnswer answer = client.get("/a");
        good += answer.status == 200 ? 1 : 0;
        EXPECT_TRUE(answer.status == 200 || (answer.status == 429 && answer.field("retry-after") == "1"));
    }
    EXPECT_GE(good, 4);
    EXPECT_LT(good, 10);
    time.advance(std::chrono::seconds(1));
    EXPECT_EQ(client.get("/a").status, 200);
}

TEST_F(HttpServiceTest, WorkBeyondTheLimitIsRefused)
{
    config.http.background = 2;
    std::promise<void> go;
    const auto going = go.get_future().share();
    route(
        "GET", "/a",
        [going](const HttpRequest&)
        {
            going.wait();
            return HttpReply::empty();
        },
        HttpAccess::open(), true);
    start();
    HttpTestClient one(service->port());
    one.send(HttpTestClient::text("GET", "/a"));
    HttpTestClient two(service->port());
    two.send(HttpTestClient::text("GET", "/a"));
    EXPECT_TRUE(eventually([this] { return service->background().count() == 2; }));
    EXPECT_EQ(get("/a").status, 503);
    go.set_value();
    EXPECT_EQ(one.answer().status, 204);
    EXPECT_EQ(two.answer().status, 204);
    EXPECT_TRUE(eventually([this] { return service->background().count() == 0; }));
}

TEST_F(HttpServiceTest, SlowAndSilentClientsAreClosed)
{
    route("GET", "/a", echo);
    start();
    HttpTestClient silent(service->port());
    HttpTestClient slow(service->port());
    slow.send("GET /a HT");
    HttpTestClient idle(service->port());
    EXPECT_EQ(idle.get("/a").status, 200);
    EXPECT_TRUE(eventually([this] { return service->connectionCount() == 3; }));
    time.advance(std::chrono::seconds(config.http.requestTimeout + 1));
    EXPECT_TRUE(silent.ended());
    EXPECT_TRUE(slow.ended());
    EXPECT_EQ(idle.get("/a").status, 200);
    time.advance(std::chrono::seconds(config.http.idleTimeout + 1));
    EXPECT_TRUE(idle.ended());
}

TEST_F(HttpServiceTest, ARequestThatIsNotHandledInTimeGets504AndIsCancelled)
{
    std::promise<void> seen;
    std::shared_ptr<const std::atomic<bool>> cancelled;
    std::promise<void> go;
    const auto going = go.get_future().share();
    route(
        "GET", "/a",
        [&, going](const HttpRequest& request)
        {
            cancelled = request.cancelled;
            seen.set_value();
            going.wait();
            return HttpReply::empty();
        },
        HttpAccess::open(), true);
    start();
    HttpTestClient client(service->port());
    client.send(HttpTestClient::text("GET", "/a"));
    seen.get_future().wait();
    time.advance(HttpConnection::maxHandling + std::chrono::seconds(1));
    EXPECT_EQ(client.answer().status, 504);
    EXPECT_TRUE(cancelled->load());
    go.set_value();
}

TEST_F(HttpServiceTest, StopsWhileClientsWait)
{
    std::promise<void> seen;
    route(
        "GET", "/a",
        [&](const HttpRequest& request)
        {
            seen.set_value();
            while (!request.cancelled->load())
            {
                std::this_thread::yield();
            }
            return HttpReply::empty();
        },
        HttpAccess::open(), true);
    start();
    HttpTestClient client(service->port());
    client.send(HttpTestClient::text("GET", "/a"));
    seen.get_future().wait();
    service->stop();
    EXPECT_TRUE(client.ended());
    EXPECT_EQ(service->port(), 0);
    EXPECT_EQ(service->connectionCount(), 0U);
}

}  // namespace
}  // namespace refhost

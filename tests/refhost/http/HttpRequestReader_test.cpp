#include "refhost/http/HttpRequestReader.h"

#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

using State = HttpRequestReader::State;

constexpr HttpRequestReader::Limits limits{1024, 64};

/// The state after `text`, which comes in parts of `size` bytes.
State readInParts(HttpRequestReader& reader, const std::string& text, std::size_t size)
{
    std::string input;
    State state = State::partial;
    for (std::size_t at = 0; at < text.size() && state == State::partial; at += size)
    {
        input += text.substr(at, size);
        std::size_t used = 0;
        state = reader.read(input, used);
        input.erase(0, used);
    }
    return state;
}

TEST(HttpRequestReader, ReadsARequestInPartsOfAnySize)
{
    const std::string text = "POST /a?b HTTP/1.1\r\nHost: x\r\nX-A:  1 \r\nContent-Length: 5\r\n\r\nhello";
    for (std::size_t size = 1; size <= text.size(); ++size)
    {
        HttpRequestReader reader(limits);
        ASSERT_EQ(readInParts(reader, text, size), State::complete) << size;
        const HttpRequest request = reader.take();
        EXPECT_EQ(request.head.method, "POST");
        EXPECT_EQ(request.head.target, "/a?b");
        EXPECT_EQ(request.head.version, 11);
        EXPECT_EQ(request.head.field("x-a"), "1");
        EXPECT_EQ(request.body, "hello");
        EXPECT_TRUE(request.keepAlive);
    }
}

TEST(HttpRequestReader, NoPrefixIsComplete)
{
    const std::string text =
        "\r\nPUT /a HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nab\r\n0\r\n\r\n";
    for (std::size_t size = 0; size < text.size(); ++size)
    {
        HttpRequestReader reader(limits);
        EXPECT_EQ(readInParts(reader, text.substr(0, size), 1), State::partial) << size;
    }
    HttpRequestReader reader(limits);
    EXPECT_EQ(readInParts(reader, text, text.size()), State::complete);
    EXPECT_EQ(reader.take().body, "ab");
}

TEST(HttpRequestReader, BoundsHeaderAndBody)
{
    const auto statusOf = [](const std::string& text)
    {
        HttpRequestReader reader(limits);
        EXPECT_EQ(readInParts(reader, text, 100), State::failed);
        return reader.status();
    };
    EXPECT_EQ(statusOf("GET /" + std::string(3000, 'x')), 431);
    EXPECT_EQ(statusOf("GET / HTTP/1.1\r\n" + std::string(3000, 'x')), 431);
    EXPECT_EQ(statusOf("PUT / HTTP/1.1\r\nContent-Length: 65\r\n\r\n"), 413);
    EXPECT_EQ(statusOf("PUT / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n41\r\n" + std::string(65, 'x') +
                       "\r\n"),
              413);
    EXPECT_EQ(statusOf("nonsense\r\n\r\n"), 400);
}

TEST(HttpRequestReader, StaysFailed)
{
    HttpRequestReader reader(limits);
    std::size_t used = 0;
    EXPECT_EQ(reader.read("nonsense\r\n\r\n", used), State::failed);
    EXPECT_EQ(reader.read("GET / HTTP/1.1\r\n\r\n", used), State::failed);
    EXPECT_EQ(used, 0U);
}

TEST(HttpRequestReader, LeavesTheNextRequest)
{
    HttpRequestReader reader(limits);
    const std::string one = "GET /1 HTTP/1.1\r\nHost: x\r\n\r\n";
    const std::string two = "GET /2 HTTP/1.0\r\n\r\n";
    std::size_t used = 0;
    EXPECT_EQ(reader.read(one + two, used), State::complete);
    EXPECT_EQ(used, one.size());
    EXPECT_EQ(reader.take().head.target, "/1");
    EXPECT_FALSE(reader.started());
    EXPECT_EQ(reader.read(two, used), State::complete);
    const HttpRequest second = reader.take();
    EXPECT_EQ(second.head.target, "/2");
    EXPECT_EQ(second.head.version, 10);
    EXPECT_FALSE(second.keepAlive);
}

TEST(HttpRequestReader, ReportsAnExpectationOnce)
{
    HttpRequestReader reader(limits);
    std::size_t used = 0;
    EXPECT_EQ(reader.read("PUT / HTTP/1.1\r\nExpect: 100-Continue\r\nContent-Length: 1\r\n\r\n", used),
              State::partial);
    EXPECT_TRUE(reader.takeExpectation());
    EXPECT_FALSE(reader.takeExpectation());
    EXPECT_EQ(reader.read("x", used), State::complete);
}

}  // namespace
}  // namespace refhost

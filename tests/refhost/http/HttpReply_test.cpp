#include "refhost/http/HttpReply.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

using testing::HasSubstr;
using testing::Not;

TEST(HttpReply, WritesStatusFieldsAndLength)
{
    const std::string text = HttpReply::json("{}", 201).with("X-Other", "1").headText(false, true);
    EXPECT_EQ(text.rfind("HTTP/1.1 201 Created\r\n", 0), 0U);
    EXPECT_THAT(text, HasSubstr("Content-Type: application/json\r\n"));
    EXPECT_THAT(text, HasSubstr("X-Other: 1\r\n"));
    EXPECT_THAT(text, HasSubstr("Content-Length: 2\r\n"));
    EXPECT_THAT(text, HasSubstr("Connection: keep-alive\r\n"));
    EXPECT_THAT(text, HasSubstr("Date: "));
    EXPECT_EQ(text.substr(text.size() - 4), "\r\n\r\n");
}

TEST(HttpReply, FieldsReplaceTheUsualOnes)
{
    const std::string text =
        HttpReply::of("text/html", "").with("cache-control", "max-age=5").headText(false, true);
    EXPECT_THAT(text, HasSubstr("cache-control: max-age=5\r\n"));
    EXPECT_THAT(text, Not(HasSubstr("no-store")));
}

TEST(HttpReply, ControlCharactersOfAValueBecomeBlanks)
{
    const std::string text = HttpReply::empty().with("X-A", "1\r\nX-B: 2").headText(false, false);
    EXPECT_THAT(text, HasSubstr("X-A: 1  X-B: 2\r\n"));
}

TEST(HttpReply, AProblemIsAJsonDocument)
{
    const HttpReply reply = HttpReply::problem(404, "No \"such\" \xff.");
    EXPECT_EQ(reply.body,
              "{\"type\":\"about:blank\",\"title\":\"Not Found\",\"status\":404,\"detail\":\"No \\\"such\\\" "
              "\xef\xbf\xbd.\"}\n");
    EXPECT_EQ(reply.field("content-type"), "application/problem+json");
}

TEST(HttpReply, WithoutABodyThereIsNoLength)
{
    EXPECT_THAT(HttpReply::empty(204).headText(false, true), Not(HasSubstr("Content-Length")));
    EXPECT_THAT(HttpReply::empty(304).headText(false, true), Not(HasSubstr("Content-Length")));
    EXPECT_THAT(HttpReply::empty(200).headText(false, true), HasSubstr("Content-Length: 0\r\n"));
}

class NoBody final : public BodySource
{
public:
    void start(std::function<void()>) override {}
    State read(std::size_t, std::string&) override
    {
        return State::ended;
    }
};

TEST(HttpReply, AMadeBodyOfUnknownLengthComesInChunks)
{
    const HttpReply reply = HttpReply::stream("video/mp4", std::make_shared<NoBody>());
    EXPECT_THAT(reply.headText(false, true), HasSubstr("Transfer-Encoding: chunked\r\n"));
    EXPECT_THAT(reply.headText(true, false), Not(HasSubstr("chunked")));
    EXPECT_THAT(HttpReply::stream("video/mp4", std::make_shared<NoBody>(), 7).headText(false, true),
                HasSubstr("Content-Length: 7\r\n"));
}

}  // namespace
}  // namespace refhost

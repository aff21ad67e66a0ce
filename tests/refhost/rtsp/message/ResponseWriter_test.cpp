#include "refhost/rtsp/message/ResponseWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "refhost/rtsp/message/SessionHeader.h"

namespace refhost
{
namespace
{

constexpr const char* dateLine =
    "Date: (Mon|Tue|Wed|Thu|Fri|Sat|Sun), [0-9]{2} (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) "
    "[0-9]{4} "
    "[0-9]{2}:[0-9]{2}:[0-9]{2} GMT\r\n";

std::string withoutDate(std::string_view response)
{
    std::string text(response);
    const std::size_t date = text.find("Date: ");
    return text.erase(date, text.find("\r\n", date) + 2 - date);
}

TEST(ResponseWriter, WritesStatusNumberDateAndServer)
{
    ResponseWriter writer;
    writer.start(rtspOk, "17");
    const std::string response(writer.finish());
    EXPECT_THAT(response, testing::ContainsRegex(dateLine));
    EXPECT_EQ(withoutDate(response), "RTSP/1.0 200 OK\r\nCSeq: 17\r\nServer: ovrtspd\r\n\r\n");
}

TEST(ResponseWriter, LeavesOutAnUnknownNumber)
{
    ResponseWriter writer;
    writer.start(rtspBadRequest, "");
    EXPECT_EQ(withoutDate(writer.finish()), "RTSP/1.0 400 Bad Request\r\nServer: ovrtspd\r\n\r\n");
}

TEST(ResponseWriter, WritesHeadersAndBodies)
{
    ResponseWriter writer;
    writer.start(rtspOk, "1");
    writer.header("Public", "OPTIONS");
    EXPECT_EQ(withoutDate(writer.finish("application/sdp", "v=0\r\n")),
              "RTSP/1.0 200 OK\r\nCSeq: 1\r\nServer: ovrtspd\r\nPublic: OPTIONS\r\n"
              "Content-Type: application/sdp\r\nContent-Length: 5\r\n\r\nv=0\r\n");
}

TEST(ResponseWriter, ForgetsTheResponseBefore)
{
    ResponseWriter writer;
    writer.start(rtspOk, "1");
    writer.finish("application/sdp", "v=0\r\n");
    writer.start(rtspNotFound, "2");
    EXPECT_EQ(withoutDate(writer.finish()), "RTSP/1.0 404 Not Found\r\nCSeq: 2\r\nServer: ovrtspd\r\n\r\n");
}

TEST(SessionHeader, ReadsTheIdWithoutParameters)
{
    EXPECT_EQ(SessionHeader::id("0123"), "0123");
    EXPECT_EQ(SessionHeader::id(" 0123 ; timeout=60"), "0123");
    EXPECT_EQ(SessionHeader::id(";timeout=60"), "");
    EXPECT_EQ(SessionHeader::id(""), "");
}

TEST(SessionHeader, WritesIdAndTimeout)
{
    std::string text;
    SessionHeader::append(text, "0123", std::chrono::seconds(60));
    EXPECT_EQ(text, "0123;timeout=60");
}

}  // namespace
}  // namespace refhost

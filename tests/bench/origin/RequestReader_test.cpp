#include "bench/origin/RequestReader.h"

#include <gtest/gtest.h>

namespace rtsporigin
{
namespace
{

const std::string bytes =
    "SETUP rtsp://h/camera/1/track1 RTSP/1.0\r\nCSeq: 3\r\ntransport:  RTP/AVP/TCP;interleaved=0-1 \r\n\r\n" +
    std::string("$\x01\0\x02xy", 6) +
    "SET_PARAMETER rtsp://h/ RTSP/1.0\r\nCSeq: 4\r\nContent-Length: 3\r\n\r\nabc"
    "TEARDOWN rtsp://h/ RTSP/1.0\r\nCSeq: 5\r\n\r\n";

TEST(RequestReader, FindsRequestsBetweenBodiesAndPacketsWhereverTheBytesAreCut)
{
    for (std::size_t cut = 0; cut <= bytes.size(); ++cut)
    {
        RequestReader reader;
        std::vector<Request> requests;
        ASSERT_TRUE(reader.feed(bytes.data(), cut, requests));
        ASSERT_TRUE(reader.feed(bytes.data() + cut, bytes.size() - cut, requests));
        ASSERT_EQ(requests.size(), 3U) << "cut at " << cut;
        EXPECT_EQ(requests[0].method, "SETUP");
        EXPECT_EQ(requests[0].url, "rtsp://h/camera/1/track1");
        EXPECT_EQ(requests[0].header("Transport"), "RTP/AVP/TCP;interleaved=0-1");
        EXPECT_EQ(requests[1].header("CSeq"), "4");
        EXPECT_EQ(requests[2].method, "TEARDOWN");
        EXPECT_EQ(requests[2].header("Session"), "");
    }
}

TEST(RequestReader, RefusesWhatIsNoRequest)
{
    RequestReader reader;
    std::vector<Request> requests;
    const std::string text = "nonsense\r\n\r\n";
    EXPECT_FALSE(reader.feed(text.data(), text.size(), requests));
}

TEST(RequestReader, RefusesAHeadWithoutEnd)
{
    RequestReader reader;
    std::vector<Request> requests;
    const std::string text(RequestReader::maxBytes + 1, 'a');
    EXPECT_FALSE(reader.feed(text.data(), text.size(), requests));
}

}  // namespace
}  // namespace rtsporigin

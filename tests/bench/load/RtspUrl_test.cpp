#include "bench/load/RtspUrl.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace rtspload
{
namespace
{

TEST(RtspUrl, OfThisMachineIsTaken)
{
    EXPECT_EQ(ntohs(RtspUrl::parse("rtsp://127.0.0.1:8554/a/b").address.sin_port), 8554);
    EXPECT_EQ(ntohs(RtspUrl::parse("rtsp://localhost/a").address.sin_port), 554);
    EXPECT_EQ(ntohl(RtspUrl::parse("rtsp://127.1.2.3/a").address.sin_addr.s_addr), 0x7f010203U);
}

TEST(RtspUrl, OfAnotherMachineIsRefused)
{
    for (const char* url : {"rtsp://192.0.2.1/a", "rtsp://0.0.0.0:8554/a", "rtsp://example.org/a",
                            "rtsp://128.0.0.1/a", "rtsp://127.0.0.1:port/a", "http://127.0.0.1/a"})
    {
        EXPECT_THROW(RtspUrl::parse(url), std::invalid_argument) << url;
    }
}

}  // namespace
}  // namespace rtspload

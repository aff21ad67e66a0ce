#include "refhost/capture/RtpPayloadCheck.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace refhost
{
namespace
{

using Bytes = std::vector<std::uint8_t>;

bool fits(const char* encoding, const Bytes& payload)
{
    return RtpPayloadCheck::isWellFormed(codecEncodedAs(encoding), {payload.data(), payload.size()});
}

bool finds(const Bytes& packet, std::size_t& size)
{
    RtpPayloadCheck::Payload payload;
    const bool found = RtpPayloadCheck::find(packet.data(), packet.size(), payload);
    size = payload.size;
    return found;
}

TEST(RtpPayloadCheck, PayloadStartsWhereTheHeaderSays)
{
    std::size_t size = 0;
    Bytes packet(20);
    packet[0] = 0x80;
    EXPECT_TRUE(finds(packet, size));
    EXPECT_EQ(size, 8U);
    packet[0] = 0x81;  // one contributing source
    EXPECT_TRUE(finds(packet, size));
    EXPECT_EQ(size, 4U);
    packet[0] = 0x90;  // an extension of one word
    packet[15] = 1;
    EXPECT_TRUE(finds(packet, size));
    EXPECT_EQ(size, 0U);
    packet[15] = 2;
    EXPECT_FALSE(finds(packet, size));
    packet[0] = 0xa0;
    packet[19] = 3;
    EXPECT_TRUE(finds(packet, size));
    EXPECT_EQ(size, 5U);
    packet[19] = 9;
    EXPECT_FALSE(finds(packet, size));
    packet[19] = 0;
    EXPECT_FALSE(finds(packet, size));
    packet[0] = 0x40;
    EXPECT_FALSE(finds(packet, size));
    EXPECT_FALSE(finds(Bytes(11, 0x80), size));
}

TEST(RtpPayloadCheck, H264WhoseInnerLengthsFitIsTaken)
{
    EXPECT_TRUE(fits("H264", {0x65, 1}));
    EXPECT_TRUE(fits("H264", {24, 0, 2, 0x67, 1, 0, 2, 0x68, 1}));
    EXPECT_TRUE(fits("H264", {28, 0x85, 1}));
}

TEST(RtpPayloadCheck, H264WhoseInnerLengthsLieIsNotTaken)
{
    for (const Bytes& payload :
         {Bytes{}, Bytes{0x65}, Bytes{24}, Bytes{24, 0}, Bytes{24, 0, 2}, Bytes{24, 0, 3, 0x67, 1},
          Bytes{24, 0, 0, 0, 1, 2}, Bytes{24, 0, 2, 0x67, 1, 0}, Bytes{24, 255, 255, 1}, Bytes{28},
          Bytes{28, 0x85}, Bytes{25, 0, 0, 0, 2, 1, 1}, Bytes{26, 1, 2, 3, 4}, Bytes{29, 1, 2, 3, 4},
          Bytes{0, 1, 2}, Bytes{31, 1, 2}})
    {
        EXPECT_FALSE(fits("H264", payload)) << testing::PrintToString(payload);
    }
}

TEST(RtpPayloadCheck, H265WhoseInnerLengthsLieIsNotTaken)
{
    EXPECT_TRUE(fits("H265", {0x26, 1, 1}));
    EXPECT_TRUE(fits("H265", {0x60, 1, 0, 3, 0x40, 1, 1}));
    EXPECT_TRUE(fits("H265", {0x62, 1, 0x93, 1}));
    for (const Bytes& payload :
         {Bytes{}, Bytes{0x26, 1}, Bytes{0x60, 1}, Bytes{0x60, 1, 0, 4, 0x40, 1, 1},
          Bytes{0x60, 1, 0, 2, 0x40, 1}, Bytes{0x62, 1, 0x93}, Bytes{0x64, 1, 2, 3, 4}})
    {
        EXPECT_FALSE(fits("H265", payload)) << testing::PrintToString(payload);
    }
}

TEST(RtpPayloadCheck, AacWhoseHeadersDoNotFitIsNotTaken)
{
    EXPECT_TRUE(fits("MPEG4-GENERIC", {0, 16, 0, 8, 1}));
    EXPECT_FALSE(fits("MPEG4-GENERIC", {0, 16, 0, 8}));
    EXPECT_FALSE(fits("MPEG4-GENERIC", {255, 255, 0, 8, 1}));
    EXPECT_FALSE(fits("MPEG4-GENERIC", {0, 0, 1}));
    EXPECT_FALSE(fits("PCMU", {}));
    EXPECT_TRUE(fits("PCMU", {1}));
}

TEST(RtpPayloadCheck, OpusWhoseFramesCannotBeIsNotTaken)
{
    EXPECT_TRUE(fits("OPUS", {31 << 3, 1}));
    EXPECT_FALSE(fits("OPUS", {}));
    EXPECT_FALSE(fits("OPUS", {(31 << 3) | 3}));
    EXPECT_FALSE(fits("OPUS", {(31 << 3) | 3, 63, 1}));
}

TEST(RtpPayloadCheck, JpegWhoseHeadersDoNotFitIsNotTaken)
{
    const auto join = [](const std::vector<Bytes>& parts)
    {
        Bytes all;
        for (const Bytes& part : parts)
        {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    };
    const Bytes plain{0, 0, 0, 0, 1, 80, 40, 30};
    const Bytes restarts{0, 0, 0, 0, 65, 80, 40, 30};
    const Bytes withTables{0, 0, 0, 0, 1, 255, 40, 30};
    const Bytes later{0, 0, 5, 0, 1, 255, 40, 30};
    const Bytes scan{1, 2};
    EXPECT_TRUE(fits("JPEG", join({plain, scan})));
    EXPECT_TRUE(fits("JPEG", join({restarts, {0, 1, 0xff, 0xff}, scan})));
    EXPECT_TRUE(fits("JPEG", join({withTables, {0, 0, 0, 128}, Bytes(128), scan})));
    EXPECT_TRUE(fits("JPEG", join({withTables, {0, 0, 0, 0}, scan})));
    EXPECT_TRUE(fits("JPEG", join({later, scan})));
    for (const Bytes& payload :
         {Bytes{}, plain, restarts, join({restarts, {0, 1, 0xff, 0xff}}), join({withTables, {0, 0, 0}}),
          join({withTables, {0, 0, 0, 128}, Bytes(128)}), join({withTables, {0, 0, 0, 64}, Bytes(64), scan}),
          join({withTables, {0, 3, 0, 128}, Bytes(128), scan}),
          join({withTables, {0, 0, 0xff, 0xff}, Bytes(128), scan}), join({{0, 0, 0, 0, 2, 80, 40, 30}, scan}),
          join({{0, 0, 0, 0, 1, 0, 40, 30}, scan})})
    {
        EXPECT_FALSE(fits("JPEG", payload)) << testing::PrintToString(payload);
    }
}

TEST(RtpPayloadCheck, RandomPacketsAreReadWithinTheirBounds)
{
    std::mt19937 random(1);
    for (int i = 0; i < 100000; ++i)
    {
        // On the heap and of its exact size, so that the sanitizer sees what is read behind it.
        Bytes packet(random() % 64);
        for (std::uint8_t& byte : packet)
        {
            byte = static_cast<std::uint8_t>(random());
        }
        const Bytes exact(packet.begin(), packet.end());
        RtpPayloadCheck::Payload payload;
        if (RtpPayloadCheck::find(exact.data(), exact.size(), payload))
        {
            EXPECT_LE(payload.data + payload.size, exact.data() + exact.size());
            for (const char* encoding : {"H264", "H265", "MPEG4-GENERIC", "OPUS", "JPEG", "L16"})
            {
                RtpPayloadCheck::isWellFormed(codecEncodedAs(encoding), payload);
            }
        }
    }
}

}  // namespace
}  // namespace refhost

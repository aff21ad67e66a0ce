#include "refhost/rtp/payload/JpegPacketizer.h"

#include <gtest/gtest.h>

#include "tests/refhost/rtp/payload/JpegUnits.h"

namespace refhost
{
namespace
{

using test::Bytes;
using test::counted;
using test::described;
using test::joined;
using test::jpegFile;
using test::jpegHeader;
using test::pack;
using test::payloadsOf;
using test::Reception;

EncodedUnit frame(const Bytes& file)
{
    MediaFormat format;
    format.codec = Codec::mjpeg;
    EncodedUnit unit;
    unit.format = std::make_shared<const MediaFormat>(format);
    unit.bytes = file;
    unit.keyFrame = true;
    return unit;
}

/// \returns why it is refused
std::string refusal(const Bytes& file)
{
    const auto packetizer = Packetizer::make(Codec::mjpeg, 1400);
    std::vector<std::shared_ptr<AccessUnit>> made;
    const char* const refused = packetizer->pack(frame(file), 0, made);
    EXPECT_EQ(made.empty(), refused != nullptr);
    return refused == nullptr ? "" : refused;
}

TEST(JpegPacketizer, TheFirstPacketBringsTheQuantizers)
{
    const auto packetizer = Packetizer::make(Codec::mjpeg, 150);
    const auto made = pack(*packetizer, frame(jpegFile(jpegHeader(64, 48), 100)), 7);
    const Bytes scan = counted(100, 5);
    EXPECT_EQ(payloadsOf(*made[0]),
              (std::vector<Bytes>{joined({{0, 0, 0, 0, 1, 255, 8, 6, 0, 0, 0, 128},
                                          counted(128, 1),
                                          {scan.begin(), scan.begin() + 10}}),
                                  joined({{0, 0, 0, 10, 1, 255, 8, 6}, {scan.begin() + 10, scan.end()}})}));
    EXPECT_TRUE(test::markerOf(*made[0], 1));
    EXPECT_TRUE(made[0]->keyFrame);
}

TEST(JpegPacketizer, EveryPayloadSizeBringsTheFileBack)
{
    for (int payloadSize = 1; payloadSize <= 1500; payloadSize += payloadSize < 200 ? 7 : 31)
    {
        const auto packetizer = Packetizer::make(Codec::mjpeg, payloadSize);
        Reception reception(described("JPEG", 90000));
        std::vector<Bytes> files;
        for (const std::size_t size : {1, 10, 1250, 1300, 9000})
        {
            files.push_back(jpegFile(jpegHeader(2040, 8, size % 20 == 0, size > 1260 ? 4 : 0), size));
            const auto made = pack(*packetizer, frame(files.back()), static_cast<std::uint32_t>(size));
            for (const Bytes& payload : payloadsOf(*made[0]))
            {
                ASSERT_LE(payload.size(), static_cast<std::size_t>(std::max(payloadSize, 145)));
            }
            reception.pushAll(*made[0]);
        }
        reception.depacketizer->flush();
        ASSERT_EQ(reception.units.size(), files.size());
        for (std::size_t i = 0; i < files.size(); ++i)
        {
            ASSERT_EQ(reception.units[i].bytes, files[i]) << payloadSize << " " << i;
        }
    }
}

TEST(JpegPacketizer, WhatRtpCannotCarryIsRefused)
{
    EXPECT_EQ(refusal({1, 2, 3, 4}), "not a JPEG");
    EXPECT_EQ(refusal(jpegFile(jpegHeader(2048, 48), 10)),
              "a JPEG whose sides are not multiples of 8 up to 2040: RTP cannot carry it");
    EXPECT_EQ(refusal(jpegFile(jpegHeader(60, 48), 10)),
              "a JPEG whose sides are not multiples of 8 up to 2040: RTP cannot carry it");
    const Bytes whole = jpegFile(jpegHeader(64, 48), 10);
    EXPECT_EQ(refusal(whole), "");
    const std::size_t frameAt = 20 + 2 * 69;
    ASSERT_EQ(whole[frameAt + 1], 0xc0);
    Bytes progressive = whole;
    progressive[frameAt + 1] = 0xc2;
    EXPECT_EQ(refusal(progressive), "not a baseline JPEG: RTP cannot carry it");
    Bytes other = whole;
    other[frameAt + 11] = 0x11;
    EXPECT_EQ(refusal(other), "a JPEG that is neither 4:2:0 nor 4:2:2: RTP cannot carry it");
    Bytes huffman = whole;
    huffman[frameAt + 19 + 30] ^= 1U;
    EXPECT_EQ(refusal(huffman), "a JPEG with Huffman tables of its own: RTP cannot carry it");
    Bytes precise = whole;
    precise[20 + 4] = 0x10;
    EXPECT_EQ(refusal(precise), "a JPEG with quantizers of 16 bits: RTP cannot carry it");
}

TEST(JpegPacketizer, EveryPrefixIsRefusedUntilTheScanBegins)
{
    const Bytes whole = jpegFile(jpegHeader(64, 48), 10);
    for (std::size_t size = 0; size <= whole.size(); ++size)
    {
        const Bytes prefix(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(refusal(prefix).empty(), size > whole.size() - 12) << size;
    }
}

TEST(JpegPacketizer, DescribesTheTrackByItsPayloadType)
{
    MediaFormat format;
    format.codec = Codec::mjpeg;
    format.width = 640;
    format.height = 360;
    SubMediaInfo track;
    ASSERT_TRUE(Packetizer::describe(format, "trackID=0", track));
    EXPECT_EQ(track.payloadType, 26);
    EXPECT_EQ(track.encodingName, "JPEG");
    EXPECT_EQ(track.clockRate, 90000);
    EXPECT_EQ(track.formatParameters, "");
    EXPECT_EQ(track.width, 640);
}

}  // namespace
}  // namespace refhost

#include "refhost/rtp/RtpReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

namespace refhost
{
namespace
{

using Bytes = std::vector<std::uint8_t>;

const Bytes header = {0x80, 0x88, 0x12, 0x34, 0, 0, 1, 0, 0xaa, 0xbb, 0xcc, 0xdd};

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes withFirst(std::uint8_t first, Bytes packet)
{
    packet[0] = first;
    return packet;
}

struct Read
{
    bool well;
    RtpPacketView view;
    Bytes payload;
};

/// Reads from memory of exactly that size, so that a sanitizer catches every read beyond it.
Read readExactly(const Bytes& packet)
{
    const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[packet.size()]);
    std::copy(packet.begin(), packet.end(), exact.get());
    Read result{};
    result.view.sequence = 4711;
    result.well = RtpReader::read(exact.get(), packet.size(), result.view);
    result.payload.assign(result.view.payload, result.view.payload + result.view.payloadSize);
    return result;
}

TEST(RtpReader, ReadsTheFieldsOfAPlainPacket)
{
    const Read read = readExactly(header + Bytes{1, 2, 3});
    ASSERT_TRUE(read.well);
    EXPECT_TRUE(read.view.marker);
    EXPECT_EQ(8, read.view.payloadType);
    EXPECT_EQ(0x1234, read.view.sequence);
    EXPECT_EQ(256U, read.view.timestamp);
    EXPECT_EQ(0xaabbccddU, read.view.ssrc);
    EXPECT_EQ((Bytes{1, 2, 3}), read.payload);
}

TEST(RtpReader, SkipsContributingSourcesAndExtensionAndRemovesPadding)
{
    const Bytes sources(8, 0x55);
    const Bytes extension = {0xbe, 0xde, 0, 1, 9, 9, 9, 9};
    EXPECT_EQ((Bytes{1, 2}), readExactly(withFirst(0x82, header) + sources + Bytes{1, 2}).payload);
    EXPECT_EQ((Bytes{1, 2}), readExactly(withFirst(0x90, header) + extension + Bytes{1, 2}).payload);
    EXPECT_EQ((Bytes{1, 2}), readExactly(withFirst(0xa0, header) + Bytes{1, 2, 0, 0, 3}).payload);
    EXPECT_EQ((Bytes{1, 2}),
              readExactly(withFirst(0xb2, header) + sources + extension + Bytes{1, 2, 1}).payload);
}

TEST(RtpReader, RefusesMalformedPacketsAndChangesNothing)
{
    const std::vector<Bytes> malformed = {
        {},
        {0x80},
        Bytes(header.begin(), header.end() - 1),
        header,                                             // nothing in it
        withFirst(0x40, header) + Bytes{1},                 // version 1
        withFirst(0x8f, header) + Bytes(59, 0),             // sources beyond the end
        withFirst(0x81, header) + Bytes(4, 0),              // nothing behind the sources
        withFirst(0x90, header) + Bytes{0, 0, 0},           // half an extension header
        withFirst(0x90, header) + Bytes{0, 0, 0xff, 0xff},  // extension beyond the end
        withFirst(0x90, header) + Bytes{0, 0, 0, 1, 0, 0, 0},
        withFirst(0x90, header) + Bytes{0, 0, 0, 1, 0, 0, 0, 0},  // nothing behind the extension
        withFirst(0xa0, header) + Bytes{1, 0},                    // padding of none
        withFirst(0xa0, header) + Bytes{1, 3},                    // more padding than payload
        withFirst(0xa0, header) + Bytes{1, 2},                    // nothing but padding
        withFirst(0xa0, header) + Bytes{1, 255},
        withFirst(0xa0, header),
    };
    for (std::size_t i = 0; i < malformed.size(); ++i)
    {
        const Read read = readExactly(malformed[i]);
        EXPECT_FALSE(read.well) << "case " << i;
        EXPECT_EQ(4711, read.view.sequence) << "case " << i;
    }
}

}  // namespace
}  // namespace refhost

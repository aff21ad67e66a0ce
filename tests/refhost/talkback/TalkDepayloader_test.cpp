#include "refhost/talkback/TalkDepayloader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "tests/refhost/talkback/TalkFakes.h"

namespace refhost
{
namespace test
{
namespace
{

/// The AU header section: each header with its size and index.
Bytes headers(const std::vector<std::pair<unsigned, unsigned>>& units)
{
    const std::size_t bits = units.size() * 16;
    Bytes out = {static_cast<std::uint8_t>(bits >> 8U), static_cast<std::uint8_t>(bits)};
    for (const auto& [size, index] : units)
    {
        out.push_back(static_cast<std::uint8_t>(size >> 5U));
        out.push_back(static_cast<std::uint8_t>(size << 3U | index));
    }
    return out;
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class Depayload
{
public:
    explicit Depayload(Codec codec) : depayloader(TalkDepayloader::make(*backChannelOf(codec))) {}

    /// Reads from memory of exactly that size, so that a sanitizer catches every read beyond it.
    bool read(const Bytes& payload, std::uint32_t timestamp = 0, bool marker = true)
    {
        const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[payload.size()]);
        std::copy(payload.begin(), payload.end(), exact.get());
        std::vector<TalkDepayloader::Frame> got;
        const bool well = depayloader->read(exact.get(), payload.size(), timestamp, marker, got);
        frames.clear();
        ticks = 0;
        for (const TalkDepayloader::Frame& one : got)
        {
            frames.emplace_back(one.data, one.data + one.size);
            ticks += one.ticks;
        }
        return well;
    }

    std::unique_ptr<TalkDepayloader> depayloader;
    std::vector<Bytes> frames;
    std::uint32_t ticks = 0;
};

TEST(TalkDepayloader, PcmIsOneFrameOfAsManyTicksAsBytes)
{
    for (const Codec codec : {Codec::pcmu, Codec::pcma})
    {
        Depayload pcm(codec);
        EXPECT_TRUE(pcm.read(Bytes(160, 7)));
        EXPECT_EQ(std::vector<Bytes>{Bytes(160, 7)}, pcm.frames);
        EXPECT_EQ(160U, pcm.ticks);
        EXPECT_FALSE(pcm.read({}));
    }
}

TEST(TalkDepayloader, OtherCodecsAreNotTaken)
{
    SubMediaInfo track;
    for (const char* const name : {"L16", "H264", ""})
    {
        track.encodingName = name;
        EXPECT_EQ(nullptr, TalkDepayloader::make(track)) << name;
    }
}

TEST(TalkDepayloader, AacPacketHoldsOneUnitOrSeveral)
{
    Depayload aac(Codec::aac);
    EXPECT_TRUE(aac.read(headers({{3, 0}}) + Bytes{1, 2, 3}));
    EXPECT_EQ((std::vector<Bytes>{{1, 2, 3}}), aac.frames);
    EXPECT_EQ(1024U, aac.ticks);
    EXPECT_TRUE(aac.read(headers({{3, 0}, {1, 0}, {2, 0}}) + Bytes{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ((std::vector<Bytes>{{1, 2, 3}, {4}, {5, 6}}), aac.frames);
    EXPECT_EQ(3072U, aac.ticks);
}

TEST(TalkDepayloader, AacUnitIsAssembledFromFragments)
{
    Depayload aac(Codec::aac);
    EXPECT_TRUE(aac.read(headers({{5, 0}}) + Bytes{1, 2}, 9, false));
    EXPECT_TRUE(aac.frames.empty());
    EXPECT_TRUE(aac.read(headers({{5, 0}}) + Bytes{3, 4}, 9, false));
    EXPECT_TRUE(aac.frames.empty());
    EXPECT_TRUE(aac.read(headers({{5, 0}}) + Bytes{5}, 9, true));
    EXPECT_EQ((std::vector<Bytes>{{1, 2, 3, 4, 5}}), aac.frames);
    EXPECT_EQ(1024U, aac.ticks);
}

TEST(TalkDepayloader, AacFragmentsOfDifferentUnitsAreNotMixed)
{
    Depayload aac(Codec::aac);
    EXPECT_TRUE(aac.read(headers({{4, 0}}) + Bytes{1, 2}, 9, false));
    EXPECT_TRUE(aac.read(headers({{4, 0}}) + Bytes{5, 6}, 10, false));
    EXPECT_TRUE(aac.read(headers({{4, 0}}) + Bytes{7, 8}, 10, true));
    EXPECT_EQ((std::vector<Bytes>{{5, 6, 7, 8}}), aac.frames);
    EXPECT_TRUE(aac.read(headers({{4, 0}}) + Bytes{1, 2}, 11, false));
    aac.depayloader->reset();
    EXPECT_FALSE(aac.read(headers({{4, 0}}) + Bytes{3, 4}, 11, true)) << "its first fragment is lost";
}

TEST(TalkDepayloader, MalformedAacGivesNothing)
{
    Depayload aac(Codec::aac);
    const std::vector<Bytes> malformed = {
        {},
        {0},
        {0, 0},
        {0, 0, 1, 2},                             // no header
        {0, 13, 1, 2, 3},                         // part of a header
        {0, 16, 1},                               // header beyond the end
        {0xff, 0xf0, 1, 2, 3},                    // many headers beyond the end
        headers({{3, 0}}),                        // no data
        headers({{3, 1}}) + Bytes{1, 2, 3},       // interleaved
        headers({{3, 0}, {1, 2}}) + Bytes(4, 1),  // interleaved
        headers({{3, 0}}) + Bytes{1, 2, 3, 4},    // more data than announced
        headers({{3, 0}, {9, 0}}) + Bytes(6, 1),  // less
        headers({{0, 0}, {1, 0}}) + Bytes{1},     // an empty unit
        headers({{8191, 0}}) + Bytes{1},          // a fragment marked as the last
    };
    for (std::size_t i = 0; i < malformed.size(); ++i)
    {
        EXPECT_FALSE(aac.read(malformed[i])) << "case " << i;
        EXPECT_TRUE(aac.frames.empty()) << "case " << i;
    }
    EXPECT_TRUE(aac.read(headers({{1, 0}}) + Bytes{1}));
}

}  // namespace
}  // namespace test
}  // namespace refhost

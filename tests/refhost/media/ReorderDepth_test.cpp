#include "refhost/media/ReorderDepth.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "refhost/media/Codec.h"

namespace refhost
{
namespace
{

using Bytes = std::vector<std::uint8_t>;

/// Writes the fields that BitReader reads.
class BitWriter
{
public:
    BitWriter& bits(unsigned count, std::uint32_t value)
    {
        for (unsigned i = count; i > 0; --i)
        {
            bits_.push_back((value >> (i - 1) & 1U) != 0);
        }
        return *this;
    }
    BitWriter& ue(std::uint32_t value)
    {
        unsigned length = 0;
        while ((value + 1) >> (length + 1) != 0)
        {
            ++length;
        }
        return bits(length, 0).bits(length + 1, value + 1);
    }
    BitWriter& se(std::int32_t value)
    {
        return ue(value > 0 ? static_cast<std::uint32_t>(value) * 2 - 1
                            : static_cast<std::uint32_t>(-value) * 2);
    }

    /// \param header  preceding bytes, without emulation prevention
    Bytes nalUnit(const Bytes& header)
    {
        bits(1, 1);
        bits_.resize((bits_.size() + 7) / 8 * 8);
        Bytes made = header;
        int zeros = 0;
        for (std::size_t i = 0; i < bits_.size(); i += 8)
        {
            unsigned byte = 0;
            for (std::size_t bit = 0; bit < 8; ++bit)
            {
                byte = byte << 1U | (bits_[i + bit] ? 1U : 0U);
            }
            if (zeros >= 2 && byte <= 3)
            {
                made.push_back(3);
                zeros = 0;
            }
            zeros = byte == 0 ? zeros + 1 : 0;
            made.push_back(static_cast<std::uint8_t>(byte));
        }
        return made;
    }

private:
    std::vector<bool> bits_;
};

struct H264Set
{
    std::string name;
    unsigned expected;
    std::uint32_t profile = 77;
    std::uint32_t constraints = 0;
    std::uint32_t level = 40;
    std::uint32_t width = 1920;
    std::uint32_t height = 1088;
    std::uint32_t orderType = 0;
    bool interlaced = false;
    bool scalingLists = false;
    bool vui = false;
    bool everythingInVui = false;
    int reorder = -1;  ///< max_num_reorder_frames; negative: no bitstream restriction
};

void PrintTo(const H264Set& set, std::ostream* out)
{
    *out << set.name;
}

void writeHrd(BitWriter& out)
{
    out.ue(1).bits(8, 0x12);
    for (int i = 0; i < 2; ++i)
    {
        out.ue(70000).ue(123456).bits(1, 1);
    }
    out.bits(20, 0x6b5ad);
}

Bytes made(const H264Set& set)
{
    BitWriter out;
    out.bits(8, set.profile).bits(8, set.constraints).bits(8, set.level).ue(3);
    if (set.profile >= 100)
    {
        out.ue(1).ue(0).ue(0).bits(1, 0).bits(1, set.scalingLists ? 1 : 0);
        for (int list = 0; set.scalingLists && list < 8; ++list)
        {
            out.bits(1, list % 2 == 0 ? 1 : 0);
            for (int i = 0; list % 2 == 0 && i < (list < 6 ? 16 : 64); ++i)
            {
                out.se(i % 3 - 1);
            }
        }
    }
    out.ue(4).ue(set.orderType);
    if (set.orderType == 0)
    {
        out.ue(4);
    }
    else if (set.orderType == 1)
    {
        out.bits(1, 0).se(-2).se(3).ue(2).se(5).se(-5);
    }
    out.ue(4).bits(1, 0).ue(set.width / 16 - 1).ue(set.height / (set.interlaced ? 32 : 16) - 1);
    out.bits(1, set.interlaced ? 0 : 1).bits(set.interlaced ? 2 : 1, 1);
    out.bits(1, 1).ue(0).ue(0).ue(0).ue(4).bits(1, set.vui ? 1 : 0);
    if (set.vui)
    {
        const unsigned all = set.everythingInVui ? 1 : 0;
        out.bits(1, 1).bits(8, set.everythingInVui ? 255 : 1).bits(set.everythingInVui ? 32 : 0, 0x00040003);
        out.bits(1, all).bits(all, 1);
        out.bits(1, all);
        if (set.everythingInVui)
        {
            out.bits(4, 5).bits(1, 1).bits(24, 0x010101);
        }
        out.bits(1, all);
        if (set.everythingInVui)
        {
            out.ue(1).ue(1);
        }
        out.bits(1, 1).bits(32, 1).bits(32, 50).bits(1, 1).bits(1, all);
        if (set.everythingInVui)
        {
            writeHrd(out);
        }
        out.bits(1, all);
        if (set.everythingInVui)
        {
            writeHrd(out);
            out.bits(1, 0);
        }
        out.bits(1, 1).bits(1, set.reorder < 0 ? 0 : 1);
        if (set.reorder >= 0)
        {
            out.bits(1, 1).ue(2).ue(1).ue(11).ue(11).ue(static_cast<std::uint32_t>(set.reorder)).ue(4);
        }
    }
    return out.nalUnit({0x67});
}

H264Set with(H264Set set, void (*change)(H264Set&))
{
    change(set);
    return set;
}

std::vector<H264Set> h264Sets()
{
    const auto set = [](const char* name, unsigned expected, void (*change)(H264Set&)) {
        return with({name, expected}, change);
    };
    return {
        set("MainWithoutVuiAt1080p", 4, [](H264Set&) {}),
        set("HighWithoutVuiAt720p", 5,
            [](H264Set& s) { s.profile = 100, s.level = 31, s.width = 1280, s.height = 720; }),
        set("SmallFramesAreLimitedTo16", 16, [](H264Set& s) { s.width = 176, s.height = 144; }),
        set("Level1b", 4,
            [](H264Set& s) { s.level = 11, s.constraints = 0x10, s.width = 176, s.height = 144; }),
        set("Level11", 9, [](H264Set& s) { s.level = 11, s.width = 176, s.height = 144; }),
        set("FramesThatTheLevelDoesNotHold", 0, [](H264Set& s) { s.level = 10; }),
        set("UnknownLevel", 16, [](H264Set& s) { s.level = 77; }),
        set("Interlaced", 4, [](H264Set& s) { s.interlaced = true; }),
        set("BaselineHasNoBFrames", 0, [](H264Set& s) { s.profile = 66; }),
        set("OrderOfTypeTwoIsTheOrderOfDecoding", 0, [](H264Set& s) { s.orderType = 2; }),
        set("OrderOfTypeOne", 4, [](H264Set& s) { s.orderType = 1; }),
        set("IntraProfile", 0, [](H264Set& s) { s.profile = 110, s.constraints = 0x10; }),
        set("VuiWithoutRestriction", 4, [](H264Set& s) { s.vui = true; }),
        set("VuiSaysNone", 0, [](H264Set& s) { s.vui = true, s.reorder = 0; }),
        set("VuiSaysTwo", 2, [](H264Set& s) { s.vui = true, s.reorder = 2; }),
        set("VuiWithEverything", 3,
            [](H264Set& s) { s.vui = true, s.everythingInVui = true, s.reorder = 3; }),
        set("VuiOfBaselineIsBelieved", 1, [](H264Set& s) { s.profile = 66, s.vui = true, s.reorder = 1; }),
        set("VuiThatSaysTooMuchIsNot", 4, [](H264Set& s) { s.vui = true, s.reorder = 17; }),
        set("ScalingLists", 2,
            [](H264Set& s) { s.profile = 100, s.scalingLists = true, s.vui = true, s.reorder = 2; }),
    };
}

class ReorderDepthTest : public testing::TestWithParam<H264Set>
{
};

TEST_P(ReorderDepthTest, IsReadFromAnH264ParameterSet)
{
    const Bytes unit = made(GetParam());
    EXPECT_EQ(ReorderDepth::ofH264(unit.data(), unit.size()), std::make_optional(GetParam().expected));
    // Truncated anywhere, it is refused or, after the relevant fields, accepted.
    for (std::size_t size = 0; size < unit.size(); ++size)
    {
        const auto found = ReorderDepth::ofH264(unit.data(), size);
        EXPECT_LE(found.value_or(0), ReorderDepth::max);
    }
}

INSTANTIATE_TEST_SUITE_P(Sets, ReorderDepthTest, testing::ValuesIn(h264Sets()),
                         [](const auto& instance) { return instance.param.name; });

// Parameter sets of x264 and x265, 320x180.
MediaFormat x264(const Bytes& parameterSet)
{
    MediaFormat format;
    format.codec = Codec::h264;
    format.codecData = {1, 100, 0, 12, 0xff, 0xe1, 0, static_cast<std::uint8_t>(parameterSet.size())};
    format.codecData.insert(format.codecData.end(), parameterSet.begin(), parameterSet.end());
    return format;
}

MediaFormat x265(const Bytes& parameterSet)
{
    MediaFormat format;
    format.codec = Codec::h265;
    format.codecData.assign(22, 0);
    const Bytes videoSet{0x40, 0x01, 0x0c, 0x01, 0xff, 0xff, 0x01, 0x60};
    format.codecData.insert(format.codecData.end(),
                            {2, 0x20, 0, 1, 0, static_cast<std::uint8_t>(videoSet.size())});
    format.codecData.insert(format.codecData.end(), videoSet.begin(), videoSet.end());
    format.codecData.insert(format.codecData.end(),
                            {0x21, 0, 1, 0, static_cast<std::uint8_t>(parameterSet.size())});
    format.codecData.insert(format.codecData.end(), parameterSet.begin(), parameterSet.end());
    return format;
}

TEST(ReorderDepth, EqualsThatOfX264)
{
    EXPECT_EQ(
        0U, ReorderDepth::of(x264({0x67, 0x64, 0x00, 0x0c, 0xac, 0xb2, 0x02, 0x83, 0x3f, 0x3e, 0x02, 0x20,
                                   0x00, 0x00, 0x03, 0x00, 0x20, 0x00, 0x00, 0x06, 0x41, 0xe2, 0x85, 0x49})));
    EXPECT_EQ(1U, ReorderDepth::of(
                      x264({0x67, 0x64, 0x00, 0x0c, 0xac, 0xe4, 0x05, 0x06, 0x7e, 0x7c, 0x04, 0x40, 0x00,
                            0x00, 0x03, 0x00, 0x40, 0x00, 0x00, 0x0c, 0x83, 0xc5, 0x0a, 0x44, 0x80})));
    EXPECT_EQ(2U, ReorderDepth::of(
                      x264({0x67, 0x64, 0x00, 0x0c, 0xac, 0xd9, 0x41, 0x41, 0x9f, 0x9f, 0x01, 0x10, 0x00,
                            0x00, 0x03, 0x00, 0x10, 0x00, 0x00, 0x03, 0x03, 0x20, 0xf1, 0x42, 0x99, 0x60})));
}

TEST(ReorderDepth, EqualsThatOfX265)
{
    EXPECT_EQ(2U, ReorderDepth::of(x265({0x42, 0x01, 0x01, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0x90, 0x00,
                                         0x00, 0x03, 0x00, 0x00, 0x03, 0x00, 0x3c, 0xa0, 0x0a, 0x08, 0x0b,
                                         0x9f, 0x79, 0x65, 0x66, 0x92, 0x4c, 0xaf, 0x01, 0x68, 0x08, 0x00,
                                         0x00, 0x03, 0x00, 0x08, 0x00, 0x00, 0x03, 0x00, 0xc8, 0x40})));
    EXPECT_EQ(0U, ReorderDepth::of(x265({0x42, 0x01, 0x01, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0x90, 0x00,
                                         0x00, 0x03, 0x00, 0x00, 0x03, 0x00, 0x3c, 0xa0, 0x0a, 0x08, 0x0b,
                                         0x9f, 0x79, 0x64, 0xa9, 0x24, 0xca, 0xf0, 0x16, 0x80, 0x80, 0x00,
                                         0x00, 0x03, 0x00, 0x80, 0x00, 0x00, 0x0c, 0x84})));
}

Bytes h265Set(unsigned subLayers, const std::vector<unsigned>& depths)
{
    BitWriter out;
    out.bits(4, 0).bits(3, subLayers).bits(1, 1);
    out.bits(8, 1).bits(32, 0x60000000).bits(32, 0x90000000).bits(16, 0).bits(8, 93);
    for (unsigned i = 0; i < subLayers; ++i)
    {
        out.bits(2, i % 2 == 0 ? 3 : 1);
    }
    out.bits(subLayers > 0 ? 2 * (8 - subLayers) : 0, 0);
    for (unsigned i = 0; i < subLayers; ++i)
    {
        for (int byte = i % 2 == 0 ? 0 : 11; byte < 12; ++byte)
        {
            out.bits(8, 0x42);
        }
    }
    out.ue(0).ue(1).ue(1920).ue(1088).bits(1, 1).ue(0).ue(0).ue(0).ue(4).ue(0).ue(0).ue(4);
    out.bits(1, depths.size() > 1 ? 1 : 0);
    for (const unsigned depth : depths)
    {
        out.ue(4).ue(depth).ue(0);
    }
    out.ue(0).ue(3);
    return out.nalUnit({0x42, 0x01});
}

TEST(ReorderDepth, OfH265IsThatOfTheHighestSubLayer)
{
    struct Case
    {
        unsigned subLayers;
        std::vector<unsigned> depths;
        std::optional<unsigned> expected;
    };
    for (const Case& set : {Case{0, {3}, 3U}, Case{2, {0, 1, 3}, 3U}, Case{2, {2}, 2U},
                            Case{6, {0, 1, 2, 2, 3, 3, 4}, 4U}, Case{0, {17}, std::nullopt}})
    {
        const Bytes unit = h265Set(set.subLayers, set.depths);
        EXPECT_EQ(ReorderDepth::ofH265(unit.data(), unit.size()), set.expected) << set.subLayers;
        for (std::size_t size = 0; size < unit.size(); ++size)
        {
            EXPECT_LE(ReorderDepth::ofH265(unit.data(), size).value_or(0), ReorderDepth::max);
        }
    }
}

TEST(ReorderDepth, OfAnUnreadableRecordIsTheMaximum)
{
    MediaFormat format = x264({0x67, 0x64, 0x00});
    EXPECT_EQ(ReorderDepth::max, ReorderDepth::of(format));
    for (const Codec codec : {Codec::h264, Codec::h265})
    {
        for (std::size_t size = 0; size < 64; ++size)
        {
            MediaFormat noise;
            noise.codec = codec;
            noise.codecData.assign(size, 0xff);
            EXPECT_EQ(ReorderDepth::max, ReorderDepth::of(noise)) << size;
        }
    }
}

TEST(ReorderDepth, OfAudioIsZero)
{
    MediaFormat format;
    format.codec = Codec::aac;
    EXPECT_EQ(0U, ReorderDepth::of(format));
}

}  // namespace
}  // namespace refhost

#include "refhost/export/RecordedFragments.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include "refhost/base/HostClock.h"
#include "tests/refhost/export/ExportFixture.h"
#include "tests/refhost/fragments/Boxes.h"

namespace refhost
{
namespace test
{
namespace
{

using Kind = RecordedFragments::Next::Kind;
using testing::ElementsAre;

class RecordedFragmentsTest : public ExportTest
{
protected:
    /// A fragment as its boxes say it.
    struct Fragment
    {
        bool video = false;
        bool key = false;
        double decode = 0;   // seconds on the timeline
        double present = 0;  // the same
        double length = 0;
        double captured = 0;  // seconds after `epoch`
    };

    static double secondsOfTicks(std::uint64_t ticks)
    {
        return static_cast<double>(static_cast<std::int64_t>(ticks)) / 90000;
    }

    static Fragment read(const std::vector<std::uint8_t>& bytes)
    {
        const ByteSpan span{bytes.data(), bytes.size()};
        const auto run = Mp4Box::find(span, "moof/traf/trun");
        const auto producer = Mp4Box::find(span, "prft");
        Fragment fragment;
        fragment.video = Mp4Box::find(span, "moof/traf/tfhd")->number(4, 4) == 1;
        fragment.decode = secondsOfTicks(Mp4Box::find(span, "moof/traf/tfdt")->number(4, 8));
        fragment.length = secondsOfTicks(run->number(12, 4));
        fragment.key = run->number(20, 4) == 0x02000000;
        fragment.present =
            fragment.decode + static_cast<double>(static_cast<std::int32_t>(run->number(24, 4))) / 90000;
        const std::uint64_t ntp = producer->number(8, 8);
        fragment.captured = static_cast<double>(ntp >> 32U) - 2208988800.0 +
                            static_cast<double>(ntp & 0xffffffffU) / 4294967296.0 -
                            secondsOf(at(0).time_since_epoch());
        return fragment;
    }

    struct All
    {
        std::string order;  // d: description, r: range, v: frame, a: audio
        std::vector<Fragment> frames;
        std::vector<Fragment> blocks;
        std::vector<RecordedFragments::Range> ranges;
    };

    RecordedFragments::Request request(double start)
    {
        RecordedFragments::Request request;
        request.cameraId = camera;
        request.start = at(start);
        return request;
    }

    All readAll(const RecordedFragments::Request& request)
    {
        RecordedFragments source(std::make_shared<const IndexedRecordings>(index_), HostClock::system(),
                                 request);
        All all;
        for (;;)
        {
            const RecordedFragments::Next next = source.next();
            switch (next.kind)
            {
                case Kind::description:
                    all.order += next.audio == nullptr ? 'd' : 'D';
                    break;
                case Kind::range:
                    all.order += 'r';
                    all.ranges.push_back(next.range);
                    break;
                case Kind::fragment:
                {
                    const Fragment fragment = read(next.fragment);
                    EXPECT_NEAR(fragment.decode, std::chrono::duration<double>(next.decode).count(), 1e-4);
                    all.order += fragment.video ? 'v' : 'a';
                    (fragment.video ? all.frames : all.blocks).push_back(fragment);
                    break;
                }
                case Kind::later:
                    ADD_FAILURE() << "nothing grows here";
                    return all;
                case Kind::end:
                    EXPECT_EQ(source.next().kind, Kind::end) << "it stays the end";
                    return all;
            }
        }
    }

    static double media(const RecordedFragments::Range& range)
    {
        return std::chrono::duration<double>(range.media).count();
    }

    static double dateOf(const RecordedFragments::Range& range)
    {
        return secondsOf(range.date - at(0));
    }
};

TEST_F(RecordedFragmentsTest, ReadingStartsWithTheKeyFrameAtOrBeforeTheInstant)
{
    record(0, 4);
    const All all = readAll(request(2.5));
    EXPECT_EQ(all.order.substr(0, 3), "drv") << "PCMU is nothing that browsers play";
    ASSERT_EQ(all.frames.size(), 50U);
    EXPECT_TRUE(all.frames.front().key);
    EXPECT_NEAR(dateOf(all.ranges.at(0)), 2, 0.001);
    for (std::size_t i = 0; i < all.frames.size(); ++i)
    {
        EXPECT_NEAR(all.frames[i].captured, 2 + static_cast<double>(i) / 25, 0.001);
        EXPECT_NEAR(all.frames[i].present, media(all.ranges[0]) + static_cast<double>(i) / 25, 0.001);
        EXPECT_NEAR(all.frames[i].length, 0.04, 0.001) << i;
    }
}

TEST_F(RecordedFragmentsTest, GapsStayAsLongAsTheyWere)
{
    record(0, 2);
    record(10, 12);
    const All all = readAll(request(1));
    ASSERT_EQ(all.ranges.size(), 2U);
    EXPECT_EQ(all.order, "dr" + std::string(25, 'v') + "r" + std::string(50, 'v'));
    EXPECT_NEAR(dateOf(all.ranges[1]), 10, 0.001);
    EXPECT_NEAR(media(all.ranges[1]) - media(all.ranges[0]), 9, 0.001);
    EXPECT_NEAR(all.frames[24].length, 0.04, 0.001) << "no frame stretches over the gap";
}

TEST_F(RecordedFragmentsTest, AnInstantInAGapStartsWithTheNextRange)
{
    record(0, 2);
    record(10, 12);
    const All all = readAll(request(5));
    EXPECT_NEAR(dateOf(all.ranges.at(0)), 10, 0.001);
}

TEST_F(RecordedFragmentsTest, ReadingEndsWithTheInterval)
{
    record(0, 10);
    auto part = request(2);
    part.end = at(4.5);
    const All all = readAll(part);
    EXPECT_NEAR(all.frames.back().captured, 4.96, 0.001)
        << "frames in front of the end may need some behind it";
    EXPECT_EQ(all.frames.size(), 75U);
}

TEST_F(RecordedFragmentsTest, NothingRecordedIsTheEnd)
{
    record(0, 2);
    EXPECT_EQ(readAll(request(5)).order, "");
    auto other = request(0);
    other.streamId = 3;
    EXPECT_EQ(readAll(other).order, "");
}

TEST_F(RecordedFragmentsTest, KeyFramesAloneFillTheTimeline)
{
    record(0, 10);
    auto part = request(2.5);
    part.keyFramesOnly = true;
    part.keyDistance = std::chrono::milliseconds(1900);
    const All all = readAll(part);
    EXPECT_EQ(all.order, "drvvvv");
    for (std::size_t i = 0; i + 1 < all.frames.size(); ++i)
    {
        EXPECT_NEAR(all.frames[i].length, 2, 0.001);
        EXPECT_NEAR(all.frames[i].captured, 2 + 2.0 * static_cast<double>(i), 0.001);
    }
}

TEST_F(RecordedFragmentsTest, BackwardsTheTimelineGoesOnWhileDatesGoBack)
{
    record(0, 3);
    record(10, 12);
    auto part = request(11.7);
    part.backwards = true;
    part.end = at(0.5);
    const All all = readAll(part);
    EXPECT_EQ(all.order, "drvvrvv");
    std::vector<double> dates;
    for (const Fragment& frame : all.frames)
    {
        dates.push_back(std::round(frame.captured * 1000) / 1000);
        EXPECT_NEAR(frame.present, media(all.ranges[0]) + 11 - frame.captured, 0.002);
        EXPECT_TRUE(frame.key);
    }
    EXPECT_THAT(dates, ElementsAre(11, 10, 2, 1));
    EXPECT_NEAR(all.frames[0].length, 1, 0.002);
}

TEST_F(RecordedFragmentsTest, ReorderedFramesAreDecodedInFrontOfTheirPresentation)
{
    // Decoding order I P B B P B B …, as times in frames.
    const auto order = [](int i)
    {
        const int inGop = i % 25;
        const int group = (inGop + 2) / 3;
        return i - inGop +
               (inGop == 0       ? 0
                : inGop % 3 == 1 ? group * 3
                                 : group * 3 - 4 + (inGop + 2) % 3 + 1);
    };
    record(0, 4, true, order);
    const All all = readAll(request(0));
    ASSERT_GT(all.frames.size(), 90U);
    for (std::size_t i = 1; i < all.frames.size(); ++i)
    {
        EXPECT_GT(all.frames[i].decode, all.frames[i - 1].decode) << i;
    }
    for (const Fragment& frame : all.frames)
    {
        EXPECT_NEAR(frame.present, media(all.ranges[0]) + frame.captured, 0.002);
    }
}

TEST_F(RecordedFragmentsTest, AudioThatIsMissingIsDescribedNoLongerAndAudioThatComesBackIs)
{
    audio = audioFormat(Codec::opus);
    record(0, 2);
    const auto format = std::exchange(audio, nullptr);
    record(2, 6);
    audio = format;
    record(6, 7);
    const All all = readAll(request(0));
    std::string descriptions;
    for (const char each : all.order)
    {
        descriptions += each == 'd' || each == 'D' ? std::string(1, each) : "";
    }
    EXPECT_EQ(descriptions, "DdD");
    EXPECT_EQ(all.ranges.size(), 1U);
    EXPECT_EQ(all.frames.size(), 175U);
    EXPECT_EQ(all.blocks.size(), 150U);
    for (std::size_t i = 1; i < 100; ++i)
    {
        EXPECT_NEAR(all.blocks[i].present - all.blocks[i - 1].present, 0.02, 0.0101);
    }
    auto silent = request(0);
    silent.audio = false;
    EXPECT_THAT(readAll(silent).order, testing::Not(testing::HasSubstr("D")));
}

TEST_F(RecordedFragmentsTest, AnotherFormatBringsAnotherDescription)
{
    record(0, 2);
    video = videoFormat(640);
    record(2, 4);
    const All all = readAll(request(1));
    EXPECT_EQ(all.order, "dr" + std::string(25, 'v') + "d" + std::string(50, 'v'));
}

TEST_F(RecordedFragmentsTest, AFileThatCannotBeReadIsAGap)
{
    record(0, 2);
    const std::string middle = record(2, 4);
    record(4, 6);
    std::filesystem::resize_file(middle, 10);
    const All all = readAll(request(0));
    EXPECT_EQ(all.frames.size(), 100U);
    EXPECT_EQ(all.ranges.size(), 2U);
}

}  // namespace
}  // namespace test
}  // namespace refhost

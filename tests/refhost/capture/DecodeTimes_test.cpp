#include "refhost/capture/DecodeTimes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

#include "refhost/media/ReorderDepth.h"

namespace refhost
{
namespace
{

constexpr Duration frame = std::chrono::milliseconds(40);

using Numbers = std::vector<int>;

/// Frames in decoding order by their numbers in the order of presentation; key frames are those in `keys`.
struct Case
{
    std::string name;
    unsigned depth;
    Numbers frames;
    Numbers keys;
};

void PrintTo(const Case& sequence, std::ostream* out)
{
    *out << sequence.name;
}

Numbers repeated(const Numbers& gop, int times)
{
    Numbers all;
    for (int i = 0; i < times; ++i)
    {
        for (const int number : gop)
        {
            all.push_back(number + i * static_cast<int>(gop.size()));
        }
    }
    return all;
}

Numbers firstOfEach(int length, int times)
{
    Numbers keys(static_cast<std::size_t>(times));
    std::generate(keys.begin(), keys.end(), [next = -length, length]() mutable { return next += length; });
    return keys;
}

std::vector<Case> cases()
{
    const Numbers ordered{0, 1, 2, 3, 4, 5, 6, 7};
    const Numbers ibbp{0, 3, 1, 2, 6, 4, 5, 7};
    const Numbers pyramid{0, 4, 2, 1, 3, 8, 6, 5, 7, 9};
    const Numbers depthThree{0, 8, 4, 2, 1, 3, 6, 5, 7, 9};
    const Numbers open{0, 3, 1, 2, 6, 4, 5, 9, 7, 8, 12, 10, 11};
    std::vector<Case> all{
        {"Ordered", 0, repeated(ordered, 5), firstOfEach(8, 5)},
        {"OrderedWithoutKnownDepth", ReorderDepth::max, repeated(ordered, 5), firstOfEach(8, 5)},
        {"Ibbp", 1, repeated(ibbp, 5), firstOfEach(8, 5)},
        {"IbbpWithoutKnownDepth", 4, repeated(ibbp, 5), firstOfEach(8, 5)},
        {"Pyramid", 2, repeated(pyramid, 5), firstOfEach(10, 5)},
        {"HierarchicalDepthThree", 3, repeated(depthThree, 5), firstOfEach(10, 5)},
        {"OpenGop", 1, open, {0, 6, 12}},
        {"SingleFrame", 2, {0}, {0}},
        {"LostFrames", 2, {0, 4, 2, 1, 8, 6, 7, 9, 20, 24, 22, 21, 23, 28, 27}, {0, 20}},
        {"LostKeyFrame", 2, {0, 4, 2, 1, 3, 14, 12, 11, 13, 18, 16, 15, 17}, {0}},
    };
    return all;
}

class DecodeTimesTest : public testing::TestWithParam<Case>
{
};

TEST_P(DecodeTimesTest, IncreaseAndAreNeverLaterThanThePresentation)
{
    for (const Duration duration : {frame, Duration::zero()})
    {
        DecodeTimes times;
        times.setDepth(GetParam().depth);
        MonotonicTime last = MonotonicTime::min();
        for (const int number : GetParam().frames)
        {
            const auto& keys = GetParam().keys;
            const MonotonicTime presented(number * frame);
            const MonotonicTime decoded =
                times.next(presented, duration, std::count(keys.begin(), keys.end(), number) > 0);
            EXPECT_LE(decoded, presented) << number;
            EXPECT_GT(decoded, last) << number;
            // No earlier than the depth requires, so that it can be used as a delay.
            EXPECT_GE(decoded, presented - (GetParam().depth + 16) * frame) << number;
            last = decoded;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Streams, DecodeTimesTest, testing::ValuesIn(cases()),
                         [](const auto& instance) { return instance.param.name; });

std::vector<std::int64_t> decoded(DecodeTimes& times, const Numbers& frames, int key = 0)
{
    std::vector<std::int64_t> found;
    for (const int number : frames)
    {
        found.push_back(times.next(MonotonicTime(number * frame), frame, number == key).time_since_epoch() /
                        frame);
    }
    return found;
}

TEST(DecodeTimes, EqualThoseOfAnEncoder)
{
    DecodeTimes times;
    times.setDepth(2);
    EXPECT_EQ(decoded(times, {0, 4, 2, 1, 3, 8, 6, 5, 7}),
              (std::vector<std::int64_t>{-2, -1, 0, 1, 2, 3, 4, 5, 6}));
}

TEST(DecodeTimes, FramesBeforeTheFirstKeyFrameKeepTheirPresentationTimes)
{
    DecodeTimes times;
    times.setDepth(2);
    EXPECT_EQ(decoded(times, {14, 12, 13, 20, 18, 19, 24, 22}, 20),
              (std::vector<std::int64_t>{14, 12, 13, 18, 18, 19, 19, 20}));
}

TEST(DecodeTimes, ChangeOfDepthCausesNoStep)
{
    for (const unsigned before : {0U, 1U, 4U})
    {
        for (const unsigned after : {0U, 2U, 16U})
        {
            DecodeTimes times;
            times.setDepth(before);
            MonotonicTime last = MonotonicTime::min();
            for (int number = 0; number < 60; ++number)
            {
                if (number == 30)
                {
                    times.setDepth(after);
                }
                const MonotonicTime time = times.next(MonotonicTime(number * frame), frame, number % 30 == 0);
                EXPECT_GT(time, last) << before << " " << after << " " << number;
                EXPECT_LE(time, MonotonicTime(number * frame));
                last = time;
            }
        }
    }
}

TEST(DecodeTimes, DepthAdaptsToAStreamThatReordersMoreThanDeclared)
{
    DecodeTimes times;
    times.setDepth(0);
    int back = 0;
    MonotonicTime last = MonotonicTime::min();
    for (const int number : repeated({0, 4, 2, 1, 3, 8, 6, 5, 7, 9}, 10))
    {
        const MonotonicTime time = times.next(MonotonicTime(number * frame), frame, number % 10 == 0);
        EXPECT_LE(time, MonotonicTime(number * frame));
        back += time <= last ? 1 : 0;
        EXPECT_TRUE(time > last || number < 10) << number;
        last = time;
    }
    EXPECT_LE(back, 2);
}

TEST(DecodeTimes, StartsAgainWhenPresentationTimesAreSetBack)
{
    DecodeTimes times;
    times.setDepth(1);
    decoded(times, {0, 3, 1, 2, 6, 4, 5});
    const auto again = [&times](int number, bool key)
    {
        constexpr Duration back = std::chrono::hours(1);
        return (times.next(MonotonicTime(number * frame - back), frame, key) + back).time_since_epoch() /
               frame;
    };
    EXPECT_EQ(again(9, false), 9);
    EXPECT_EQ(again(20, true), 19);
    EXPECT_EQ(again(23, false), 20);
    EXPECT_EQ(again(21, false), 21);
}

}  // namespace
}  // namespace refhost

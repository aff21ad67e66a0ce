#include "refhost/fragments/FragmentStream.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "tests/refhost/base/ManualClock.h"
#include "tests/refhost/fragments/Boxes.h"
#include "tests/refhost/recording/MadeUnits.h"

namespace refhost
{
namespace
{

using test::Mp4Box;

class FragmentStreamTest : public testing::Test, protected MadeUnits
{
protected:
    FragmentStreamTest()
    {
        audio = audioFormat(Codec::aac);
        stream_.expect({true, false});
    }

    void feed(double time, bool key, std::size_t bytes = 100)
    {
        stream_.onEncodedUnit(frame(time, key, bytes));
    }

    /// GOPs of ten frames a second.
    void run(int first, int last)
    {
        for (int i = first; i < last; ++i)
        {
            feed(i / 10.0, i % 10 == 0);
        }
    }

    /// Everything that a viewer can read now: "description", "key", or the number of bytes of a unit.
    std::vector<std::string> readAll(FragmentStream::Cursor& cursor)
    {
        std::vector<std::string> all;
        for (;;)
        {
            const FragmentStream::Next next = stream_.read(cursor);
            if (next.description)
            {
                all.emplace_back(next.description->audio != nullptr ? "both" : "video");
            }
            else if (next.fragment != nullptr)
            {
                all.push_back(next.keyFrame ? "key" : trackOf(next) == 2 ? "audio" : "frame");
            }
            else
            {
                return all;
            }
        }
    }

    static std::uint64_t trackOf(const FragmentStream::Next& next)
    {
        return Mp4Box::find(*next.fragment, "moof/traf/tfhd")->number(4, 4);
    }

    static std::uint64_t decodeTime(const FragmentStream::Next& next)
    {
        return Mp4Box::find(*next.fragment, "moof/traf/tfdt")->number(4, 8);
    }

    using Texts = std::vector<std::string>;

    test::ManualClock clock_;
    FragmentStream stream_{clock_};
    FragmentStream::Cursor cursor_;
};

TEST_F(FragmentStreamTest, AViewerBeginsWithTheNewestKeyFrameThatIsKept)
{
    run(0, 23);
    EXPECT_EQ(readAll(cursor_), (Texts{"video", "key", "frame", "frame"}));
    feed(2.3, false);
    EXPECT_EQ(readAll(cursor_), (Texts{"frame"}));
    EXPECT_EQ(readAll(cursor_), Texts{});
}

TEST_F(FragmentStreamTest, BeforeTheFirstKeyFrameThereIsNothing)
{
    feed(0.1, false);
    feed(0.2, false);
    EXPECT_EQ(readAll(cursor_), Texts{});
    feed(0.3, true);
    EXPECT_EQ(readAll(cursor_), (Texts{"video", "key"}));
}

TEST_F(FragmentStreamTest, AFragmentIsMadeOnceForAllViewers)
{
    run(0, 3);
    FragmentStream::Cursor other;
    stream_.read(cursor_);
    stream_.read(other);
    const auto first = stream_.read(cursor_).fragment;
    EXPECT_EQ(first, stream_.read(other).fragment);
    EXPECT_NE(first, nullptr);
}

TEST_F(FragmentStreamTest, AViewerOfThePreviousGopIsNotCutOff)
{
    run(0, 15);
    readAll(cursor_);
    run(15, 21);
    EXPECT_EQ(readAll(cursor_), (Texts{"frame", "frame", "frame", "frame", "frame", "key"}));
}

TEST_F(FragmentStreamTest, AViewerThatFallsBehindLosesWholeGops)
{
    run(0, 5);
    readAll(cursor_);
    run(5, 52);
    EXPECT_EQ(readAll(cursor_), (Texts{"key", "frame"}));
}

TEST_F(FragmentStreamTest, WhatIsKeptIsBounded)
{
    feed(0, true, 1000);
    for (int i = 1; i <= 50; ++i)
    {
        feed(i / 25.0, false, std::size_t{1} << 20U);
    }
    EXPECT_EQ(readAll(cursor_), Texts{}) << "the key frame had to go";
    feed(3, true);
    EXPECT_EQ(readAll(cursor_), (Texts{"video", "key"}));
    for (std::size_t i = 0; i <= FragmentStream::maxUnits; ++i)
    {
        feed(4 + static_cast<double>(i) / 1000, false, 8);
    }
    FragmentStream::Cursor other;
    EXPECT_EQ(readAll(other), Texts{});
}

TEST_F(FragmentStreamTest, AudioAndVideoShareOneTimeline)
{
    stream_.expect({true, true});
    stream_.onEncodedUnit(frame(1, true));
    stream_.onEncodedUnit(block(1.5));
    EXPECT_TRUE(stream_.read(cursor_).description);
    const auto frameRead = stream_.read(cursor_);
    const auto blockRead = stream_.read(cursor_);
    EXPECT_EQ(trackOf(blockRead), 2u);
    EXPECT_EQ(decodeTime(blockRead) - decodeTime(frameRead), 45000u);
}

TEST_F(FragmentStreamTest, AViewerWithoutAudioGetsNone)
{
    stream_.expect({true, true});
    stream_.onEncodedUnit(frame(1, true));
    stream_.onEncodedUnit(block(1));
    cursor_.wantsAudio = false;
    EXPECT_EQ(readAll(cursor_), (Texts{"video", "key"}));
    FragmentStream::Cursor both;
    EXPECT_EQ(readAll(both), (Texts{"both", "key", "audio"}));
}

TEST_F(FragmentStreamTest, ViewersWaitALittleForAudioThatIsExpected)
{
    stream_.expect({true, true});
    auto unit = std::make_shared<EncodedUnit>(*frame(1, true));
    unit->captureTime = clock_.now();
    unit->decodeTime = unit->captureTime;
    stream_.onEncodedUnit(unit);
    EXPECT_EQ(readAll(cursor_), Texts{});
    clock_.advance(FragmentStream::maxAudioWait + Duration(1));
    EXPECT_EQ(readAll(cursor_), (Texts{"video", "key"}));
}

TEST_F(FragmentStreamTest, AudioThatComesLaterStartsTheViewerAgainWithBothTracks)
{
    run(0, 12);
    EXPECT_EQ(readAll(cursor_), (Texts{"video", "key", "frame"}));
    FragmentStream::Cursor silent;
    silent.wantsAudio = false;
    readAll(silent);
    stream_.onEncodedUnit(block(1.2));
    EXPECT_EQ(readAll(cursor_), (Texts{"both", "key", "frame", "audio"}));
    EXPECT_EQ(readAll(silent), Texts{}) << "nothing changed for a viewer without audio";
}

TEST_F(FragmentStreamTest, AnotherFormatBeginsWithItsKeyFrame)
{
    run(0, 5);
    readAll(cursor_);
    video = videoFormat(640);
    feed(0.5, false);
    EXPECT_EQ(readAll(cursor_), Texts{}) << "undecodable";
    feed(0.6, true);
    EXPECT_EQ(readAll(cursor_), (Texts{"video", "key"}));
}

TEST_F(FragmentStreamTest, TheSameFormatInAnotherObjectChangesNothing)
{
    run(0, 2);
    readAll(cursor_);
    video = videoFormat();
    feed(0.2, true);
    EXPECT_EQ(readAll(cursor_), (Texts{"key"}));
}

TEST_F(FragmentStreamTest, ARestartOfTheSourceContinuesTheTimeline)
{
    feed(0, true);
    readAll(cursor_);
    stream_.onDiscontinuity();
    EXPECT_EQ(readAll(cursor_), Texts{});
    feed(60, false);
    EXPECT_EQ(readAll(cursor_), Texts{});
    feed(61, true);
    const auto next = stream_.read(cursor_);
    ASSERT_TRUE(next.keyFrame);
    EXPECT_EQ(decodeTime(next), 71u * 90000) << "ten seconds lead, and 61";
}

TEST_F(FragmentStreamTest, AudioThatNoBrowserPlaysIsLeftOut)
{
    audio = audioFormat(Codec::pcmu);
    stream_.onEncodedUnit(block(0));
    feed(0, true);
    stream_.onEncodedUnit(block(0.02));
    EXPECT_EQ(readAll(cursor_), (Texts{"video", "key"}));
}

TEST_F(FragmentStreamTest, AStreamWithoutVideoBeginsAtItsAudio)
{
    stream_.expect({false, true});
    stream_.onEncodedUnit(block(0));
    stream_.onEncodedUnit(block(0.02));
    cursor_.wantsAudio = false;
    EXPECT_EQ(readAll(cursor_), (Texts{"both", "audio"})) << "there is nothing else";
}

TEST_F(FragmentStreamTest, SubscribersAreWokenUntilTheyEnd)
{
    int woken = 0;
    const std::uint64_t subscription = stream_.subscribe([&woken] { ++woken; });
    run(0, 3);
    EXPECT_EQ(woken, 3);
    EXPECT_EQ(stream_.subscribers(), 1u);
    stream_.unsubscribe(subscription);
    run(3, 6);
    EXPECT_EQ(woken, 3);
    EXPECT_EQ(stream_.subscribers(), 0u);
}

TEST_F(FragmentStreamTest, AudioWakesThoseWhoWantIt)
{
    int all = 0;
    int silent = 0;
    stream_.subscribe([&all] { ++all; });
    stream_.subscribe([&silent] { ++silent; }, false);
    stream_.onEncodedUnit(block(0));
    EXPECT_EQ(silent, 1) << "there is nothing else";
    feed(0.1, true);
    stream_.onEncodedUnit(block(0.1));
    stream_.onEncodedUnit(block(0.12));
    EXPECT_EQ(all, 4);
    EXPECT_EQ(silent, 2);
}

TEST_F(FragmentStreamTest, ViewersOfManyThreadsReadWhileTheSourceDelivers)
{
    std::vector<std::thread> viewers;
    std::atomic<bool> ended{false};
    for (int i = 0; i < 4; ++i)
    {
        viewers.emplace_back(
            [&]
            {
                FragmentStream::Cursor cursor;
                std::uint64_t last = 0;
                while (!ended)
                {
                    const auto next = stream_.read(cursor);
                    if (next.fragment != nullptr)
                    {
                        const std::uint64_t time = decodeTime(next);
                        EXPECT_GT(time, last);
                        last = time;
                    }
                }
            });
    }
    run(0, 2000);
    ended = true;
    for (std::thread& viewer : viewers)
    {
        viewer.join();
    }
}

}  // namespace
}  // namespace refhost

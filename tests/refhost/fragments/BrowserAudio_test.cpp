#include "refhost/fragments/BrowserAudio.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include "tests/refhost/base/ManualClock.h"
#include "tests/refhost/fragments/TelephoneTone.h"

namespace refhost
{
namespace
{

class BrowserAudioTest : public testing::Test, protected MadeUnits
{
protected:
    ~BrowserAudioTest() override
    {
        pool_->close();
    }

    /// Frames and audio of [begin, end) seconds.
    void give(double begin, double end)
    {
        for (auto i = std::lround(begin * 25); i < std::lround(end * 25); ++i)
        {
            const double at = static_cast<double>(i) / 25;
            audio_->onEncodedUnit(frame(at, i % 25 == 0));
            audio_->onEncodedUnit(tone_.block(at, 320));
        }
    }

    /// Counts the viewer's fragments of audio until there are so many.
    bool hears(std::size_t count)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (received_ < count && std::chrono::steady_clock::now() < end)
        {
            const FragmentStream::Next next = fragments_->read(cursor_);
            if (next.description)
            {
                ++descriptions_;
                codec_ =
                    next.description->audio == nullptr ? "" : infoOf(next.description->audio->codec).name;
            }
            else if (next.fragment == nullptr)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            else if (!next.video)
            {
                ++received_;
            }
        }
        return received_ >= count;
    }

    test::ManualClock clock_;
    std::shared_ptr<FragmentStream> fragments_ = std::make_shared<FragmentStream>(clock_);
    std::shared_ptr<WorkPool> pool_ = std::make_shared<WorkPool>(WorkPool::Options{1, Duration::zero()});
    std::shared_ptr<BrowserAudio> audio_ = std::make_shared<BrowserAudio>(fragments_, pool_);
    test::TelephoneTone tone_{Codec::pcmu};
    FragmentStream::Cursor cursor_;
    std::size_t received_ = 0;
    std::size_t descriptions_ = 0;
    std::string codec_;
};

TEST_F(BrowserAudioTest, AListenerHearsOpus)
{
    audio_->addListener();
    give(0, 0.52);
    EXPECT_TRUE(hears(20));
    EXPECT_EQ(codec_, "opus");
    EXPECT_EQ(descriptions_, 1U);
    audio_->removeListener();
}

TEST_F(BrowserAudioTest, TheFirstListenerNeedNotStartAgainWhenTheAudioComes)
{
    give(0, 0.52);
    EXPECT_EQ(audio_->waiting(), 0U) << "nobody listens";
    EXPECT_EQ(pool_->size(), 0U);
    EXPECT_TRUE(fragments_->read(cursor_).description->audio != nullptr);
    audio_->addListener();
    give(0.52, 1);
    EXPECT_TRUE(hears(10));
    EXPECT_EQ(descriptions_, 0U) << "but the one that was read above";
    audio_->removeListener();
}

TEST_F(BrowserAudioTest, AudioEndsWithTheLastListener)
{
    audio_->addListener();
    audio_->addListener();
    give(0, 0.52);
    EXPECT_TRUE(hears(10));
    audio_->removeListener();
    give(0.52, 1);
    EXPECT_TRUE(hears(30));
    audio_->removeListener();
    give(1, 1.2);
    EXPECT_EQ(audio_->waiting(), 0U);
}

TEST_F(BrowserAudioTest, WhatWaitsIsBounded)
{
    audio_->addListener();
    // As if the thread were busy for long.
    pool_->close();
    for (int i = 0; i < 300; ++i)
    {
        audio_->onEncodedUnit(tone_.block(i * 0.02, 160));
    }
    EXPECT_EQ(audio_->waiting(), BrowserAudio::maxWaiting);
    audio_->onDiscontinuity();
    EXPECT_EQ(audio_->waiting(), 0U);
}

TEST_F(BrowserAudioTest, AudioThatBrowsersPlayPassesAtOnce)
{
    audio = audioFormat(Codec::aac);
    audio_->onEncodedUnit(frame(0, true));
    audio_->onEncodedUnit(block(0));
    EXPECT_TRUE(hears(1));
    EXPECT_EQ(codec_, "aac");
    EXPECT_EQ(pool_->size(), 0U);
}

TEST_F(BrowserAudioTest, ItEndsWhileItIsAtWork)
{
    audio_->addListener();
    give(0, 2);
    audio_->removeListener();
    audio_.reset();
    pool_->close();
}

}  // namespace
}  // namespace refhost

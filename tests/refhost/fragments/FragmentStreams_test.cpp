#include "refhost/fragments/FragmentStreams.h"

#include <gtest/gtest.h>

#include "refhost/media/Device.h"
#include "tests/refhost/base/ManualClock.h"
#include "tests/refhost/fragments/OneCamera.h"

namespace refhost
{
namespace
{

class FragmentStreamsTest : public testing::Test, protected MadeUnits
{
protected:
    FragmentStreamsTest()
    {
        Device::setStreams(cameras_);
    }
    ~FragmentStreamsTest() override
    {
        Device::setStreams(nullptr);
    }

    test::ManualClock clock_;
    std::shared_ptr<test::OneCamera> cameras_ = std::make_shared<test::OneCamera>();
    FragmentStreams streams_{clock_};
};

TEST_F(FragmentStreamsTest, ViewersShareAStreamAndKeepItsSourceRunning)
{
    const auto stream = streams_.find(1, 0);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(streams_.find(1, 0), stream);
    EXPECT_EQ(cameras_->source->viewers, 0);
    {
        FragmentViewer one(stream, true, [] {});
        FragmentViewer another(stream, true, [] {});
        EXPECT_EQ(cameras_->source->viewers, 2);
        EXPECT_EQ(stream->fragments().subscribers(), 2u);
    }
    EXPECT_EQ(cameras_->source->viewers, 0);
    EXPECT_EQ(stream->fragments().subscribers(), 0u);
    EXPECT_TRUE(cameras_->source->isAttached()) << "the next viewer begins with what is kept";
}

TEST_F(FragmentStreamsTest, TracksAreThoseOfTheDescription)
{
    cameras_->source->audio = false;
    FragmentViewer viewer(streams_.find(1, 0), true, [] {});
    viewer.read();
    streams_.find(1, 0)->fragments().onEncodedUnit(frame(0, true));
    EXPECT_TRUE(viewer.read().description) << "it does not wait for audio";
    EXPECT_TRUE(viewer.read().keyFrame);
}

TEST_F(FragmentStreamsTest, AStreamThatIsNotConfiguredIsNotFound)
{
    EXPECT_EQ(streams_.find(2, 0), nullptr);
    EXPECT_EQ(streams_.find(1, 1), nullptr);
}

TEST_F(FragmentStreamsTest, ACameraThatWasReplacedIsTappedAgain)
{
    const auto before = streams_.find(1, 0);
    FragmentViewer viewer(before, true, [] {});
    const auto old = cameras_->source;
    cameras_->replace(std::make_shared<RecordedStreamFake>());
    EXPECT_NE(streams_.find(1, 0), before);
    EXPECT_EQ(old->viewers, 1) << "its viewer still holds it";
}

TEST_F(FragmentStreamsTest, ACameraThatIsGoneIsForgotten)
{
    std::weak_ptr<TappedStream> tapped = streams_.find(1, 0);
    cameras_->replace(nullptr);
    EXPECT_EQ(streams_.find(1, 0), nullptr);
    EXPECT_TRUE(tapped.expired());
}

}  // namespace
}  // namespace refhost

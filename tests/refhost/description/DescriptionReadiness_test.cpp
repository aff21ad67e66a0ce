#include "refhost/description/DescriptionReadiness.h"

#include <gtest/gtest.h>

#include "refhost/media/Device.h"
#include "tests/refhost/description/FakeDirectory.h"

namespace refhost
{
namespace
{

using Description = StreamSource::Description;

class DescriptionReadinessTest : public testing::Test
{
protected:
    DescriptionReadinessTest()
    {
        Device::setStreams(directory);
    }
    ~DescriptionReadinessTest() override
    {
        Device::setStreams(nullptr);
    }

    std::shared_ptr<test::FakeDirectory> directory = std::make_shared<test::FakeDirectory>();
};

TEST_F(DescriptionReadinessTest, StartingStreamIsNotReady)
{
    directory->stream->description = Description::starting;
    EXPECT_FALSE(DescriptionReadiness::live("orv/live/3/1"));
    EXPECT_FALSE(DescriptionReadiness::multicast("orv/multicast/3/1"));
}

TEST_F(DescriptionReadinessTest, DescribedStreamIsReady)
{
    EXPECT_TRUE(DescriptionReadiness::live("orv/live/3/1"));
    EXPECT_TRUE(DescriptionReadiness::multicast("orv/multicast/3/1"));
}

TEST_F(DescriptionReadinessTest, PresentationsThatCannotBeDescribedAreReady)
{
    EXPECT_TRUE(DescriptionReadiness::live("orv/live/3/2"));
    EXPECT_TRUE(DescriptionReadiness::live("orv/live/no/number"));
    directory->stream->description = Description::failed;
    EXPECT_TRUE(DescriptionReadiness::live("orv/live/3/1"));
    Device::setStreams(nullptr);
    EXPECT_TRUE(DescriptionReadiness::live("orv/live/3/1"));
}

TEST_F(DescriptionReadinessTest, RecordingsWaitForTheirIndex)
{
    EXPECT_TRUE(DescriptionReadiness::recorded("orv/playback/1_0_10"));
    Device::expectRecordings();
    EXPECT_FALSE(DescriptionReadiness::recorded("orv/playback/1_0_10"));
    Device::setRecordings(nullptr);
    EXPECT_TRUE(DescriptionReadiness::recorded("orv/playback/1_0_10"));
}

}  // namespace
}  // namespace refhost

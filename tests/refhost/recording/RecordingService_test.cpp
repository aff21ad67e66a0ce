#include "refhost/recording/RecordingService.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <thread>

#include "refhost/device/Device.h"
#include "tests/CapturedErrors.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/recording/RecordedStreamFake.h"

namespace refhost
{
namespace
{

using testing::HasSubstr;
using testing::SizeIs;

class FakeStreams : public StreamDirectory
{
public:
    std::shared_ptr<StreamSource> find(int, int streamId) override
    {
        return streams.at(streamId);
    }

    std::map<int, std::shared_ptr<RecordedStreamFake>> streams{{0, std::make_shared<RecordedStreamFake>()},
                                                               {1, std::make_shared<RecordedStreamFake>()}};
};

class RecordingServiceTest : public testing::Test
{
protected:
    RecordingServiceTest()
    {
        config_ = ServerConfig::embedded();
        config_.recording.directory = folder_ / "kept";
        config_.recording.segment = 1;
    }

    void start()
    {
        service_ = std::make_unique<RecordingService>(config_, streams_, std::chrono::milliseconds(10));
        service_->start();
    }

    // Ten seconds at most.
    static void waitFor(const std::function<bool()>& condition)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!condition() && std::chrono::steady_clock::now() < end)
        {
            std::this_thread::yield();
        }
        EXPECT_TRUE(condition());
    }

    RecordedStreamFake& recorded() const
    {
        return *streams_->streams.at(0);
    }

    TemporaryFolder folder_;
    ServerConfig config_;
    std::shared_ptr<FakeStreams> streams_ = std::make_shared<FakeStreams>();
    std::unique_ptr<RecordingService> service_;
};

TEST_F(RecordingServiceTest, StreamsAreRecordedAsConfiguredAndTheIndexIsPublished)
{
    start();
    ASSERT_TRUE(recorded().waitUntilAttached());
    EXPECT_FALSE(streams_->streams.at(1)->isAttached());
    const std::shared_ptr<RecordingIndex> index = Device::recordings();
    ASSERT_TRUE(index);
    recorded().giveMedia(0, 2);
    service_->stop();
    EXPECT_EQ(index->all().size(), 2U);
    EXPECT_EQ(Device::recordings(), nullptr);
    EXPECT_FALSE(recorded().isAttached());
}

TEST_F(RecordingServiceTest, WithoutAnythingToRecordNoDirectoryIsMade)
{
    config_.cameras[0].streams[0].record = false;
    start();
    service_->stop();
    EXPECT_FALSE(std::filesystem::exists(folder_ / "kept"));
}

TEST_F(RecordingServiceTest, EarlierRecordingsArePublishedAlsoWhereNothingIsRecordedNow)
{
    start();
    ASSERT_TRUE(recorded().waitUntilAttached());
    service_->stop();
    config_.cameras[0].streams[0].record = false;
    start();
    waitFor([] { return Device::recordings() != nullptr; });
}

TEST_F(RecordingServiceTest, OldestRecordingsGoAsSegmentsClose)
{
    config_.recording.maxSize = 1;
    start();
    ASSERT_TRUE(recorded().waitUntilAttached());
    const std::shared_ptr<RecordingIndex> index = Device::recordings();
    for (int i = 0; i < 8; ++i)
    {
        recorded().giveMedia(i, i + 1, 10000);
        recorded().drain();
    }
    // Its segment is the first that closes with too much there.
    recorded().give(recorded().made.picture(8, true));
    recorded().drain();
    waitFor([&] { return index->totalBytes() <= 1048576; });
    EXPECT_GT(index->all().front().beginNs, MadeUnits::at(0));
    service_->stop();
}

TEST_F(RecordingServiceTest, DirectoryThatCannotBeMadeIsToldOnceAndTriedAgain)
{
    std::ofstream(folder_ / "kept") << "in the way";
    CapturedErrors log;
    start();
    waitFor([&] { return service_->attempts() > 3; });
    EXPECT_EQ(Device::recordings(), nullptr);
    std::filesystem::remove(folder_ / "kept");
    ASSERT_TRUE(recorded().waitUntilAttached());
    service_->stop();
    EXPECT_THAT(log.linesWith("nothing is recorded: "), SizeIs(1));
    const std::vector<std::string> works = log.linesWith("one stream is recorded in ");
    ASSERT_THAT(works, SizeIs(1));
    EXPECT_THAT(works[0], HasSubstr("which can be written now"));
}

}  // namespace
}  // namespace refhost

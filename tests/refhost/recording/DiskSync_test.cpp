#include "refhost/recording/DiskSync.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <filesystem>

#include "tests/TemporaryFolder.h"
#include "tests/refhost/recording/DiskCalls.h"

namespace refhost
{
namespace
{

using std::chrono::milliseconds;
using testing::ElementsAre;

class DiskSyncTest : public testing::Test
{
protected:
    DiskSyncTest()
    {
        DiskCalls::instance().reset();
    }
    ~DiskSyncTest() override
    {
        DiskCalls::instance().reset();
    }

    std::shared_ptr<SyncedFile> file(const std::string& name) const
    {
        const std::string path = folder_ / name;
        Descriptor opened(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        EXPECT_TRUE(opened);
        return std::make_shared<SyncedFile>(std::move(opened), path);
    }

    static std::vector<std::string> calls()
    {
        std::vector<std::string> found;
        for (const DiskCalls::Call& call : DiskCalls::instance().calls())
        {
            found.push_back(call.name + " " + std::filesystem::path(call.path).filename().string());
        }
        return found;
    }

    bool isSynced(const std::string& name) const
    {
        return DiskCalls::instance().waitForSync(folder_ / name, 0);
    }

    TemporaryFolder folder_;
    DiskSync::Options options_{milliseconds(10), 100};
};

TEST_F(DiskSyncTest, PassStartsOnAllFilesBeforeItWaitsForOne)
{
    options_.interval = milliseconds(200);
    DiskSync sync(options_);
    sync.add(file("first.mkv"));
    ASSERT_TRUE(isSynced("first.mkv"));
    sync.add(file("a.mkv"));
    sync.add(file("b.mkv"));
    ASSERT_TRUE(isSynced("b.mkv"));
    EXPECT_THAT(calls(), ElementsAre("start first.mkv", "sync first.mkv", "start a.mkv", "start b.mkv",
                                     "sync a.mkv", "sync b.mkv"));
}

TEST_F(DiskSyncTest, FileThatIsAddedOftenIsSyncedOnceInAPass)
{
    options_.interval = milliseconds(200);
    DiskSync sync(options_);
    sync.add(file("first.mkv"));
    ASSERT_TRUE(isSynced("first.mkv"));
    const auto often = file("a.mkv");
    for (int i = 0; i < 100; ++i)
    {
        sync.add(often);
    }
    sync.add(file("z.mkv"));
    ASSERT_TRUE(isSynced("z.mkv"));
    EXPECT_THAT(calls(), ElementsAre("start first.mkv", "sync first.mkv", "start a.mkv", "start z.mkv",
                                     "sync a.mkv", "sync z.mkv"));
}

TEST_F(DiskSyncTest, FileThatIsWrittenDuringItsPassIsSyncedAgain)
{
    DiskSync sync(options_);
    const auto written = file("a.mkv");
    DiskCalls::instance().hang("sync", "a.mkv");
    sync.add(written);
    ASSERT_TRUE(DiskCalls::instance().waitForHanging(1));
    sync.add(written);
    DiskCalls::instance().release();
    sync.add(file("z.mkv"));
    ASSERT_TRUE(isSynced("z.mkv"));
    EXPECT_THAT(calls(), ElementsAre("start a.mkv", "sync a.mkv", "start a.mkv", "start z.mkv", "sync a.mkv",
                                     "sync z.mkv"));
}

TEST_F(DiskSyncTest, FailureIsKnownToWhoeverAsksForTheResult)
{
    DiskSync sync(options_);
    DiskCalls::instance().failSyncs(true);
    auto failing = file("a.mkv");
    const SyncedFile::Result result = failing->result();
    sync.add(std::exchange(failing, nullptr));
    ASSERT_TRUE(isSynced("a.mkv"));
    EXPECT_TRUE(sync.close(std::chrono::seconds(20)));
    EXPECT_EQ(result->failure, EIO);
    EXPECT_EQ(result->path, folder_ / "a.mkv");
}

TEST_F(DiskSyncTest, FileIsClosedWhenItWasSyncedAndNobodyElseHoldsIt)
{
    DiskSync sync(options_);
    auto opened = file("a.mkv");
    const std::weak_ptr<SyncedFile> kept = opened;
    sync.add(std::exchange(opened, nullptr));
    ASSERT_TRUE(isSynced("a.mkv"));
    EXPECT_TRUE(sync.close(std::chrono::seconds(20)));
    EXPECT_TRUE(kept.expired());
}

TEST_F(DiskSyncTest, CloseStartsOnWhatWaitsWithoutWaitingForTheDisk)
{
    options_.interval = std::chrono::hours(1);
    DiskSync sync(options_);
    sync.add(file("first.mkv"));
    ASSERT_TRUE(isSynced("first.mkv"));
    sync.add(file("a.mkv"));
    EXPECT_TRUE(sync.close(std::chrono::seconds(20)));
    EXPECT_THAT(calls(), ElementsAre("start first.mkv", "sync first.mkv", "start a.mkv"));
    sync.add(file("b.mkv"));
    EXPECT_EQ(calls().size(), 3U) << "nothing is taken any more";
}

TEST_F(DiskSyncTest, DiskThatHangsIsLeftBehind)
{
    DiskCalls::instance().hang("sync", "a.mkv");
    {
        DiskSync sync(options_);
        sync.add(file("a.mkv"));
        ASSERT_TRUE(DiskCalls::instance().waitForHanging(1));
        EXPECT_FALSE(sync.close(milliseconds(20)));
    }
    DiskCalls::instance().release();
    EXPECT_TRUE(isSynced("a.mkv"));
}

TEST_F(DiskSyncTest, WriterWaitsForTheDiskItselfWhereTooManyFilesWait)
{
    options_.maxWaiting = 2;
    DiskSync sync(options_);
    DiskCalls::instance().hang("sync", "first.mkv");
    sync.add(file("first.mkv"));
    ASSERT_TRUE(DiskCalls::instance().waitForHanging(1));
    sync.add(file("a.mkv"));
    sync.add(file("b.mkv"));
    EXPECT_THAT(calls(), ElementsAre("start first.mkv"));
    sync.add(file("c.mkv"));
    EXPECT_THAT(calls(), ElementsAre("start first.mkv", "sync c.mkv"));
    DiskCalls::instance().release();
    EXPECT_TRUE(isSynced("b.mkv"));
}

}  // namespace
}  // namespace refhost

#include "refhost/recording/RecordingFolder.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/PrivateMounts.h"
#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace
{

using testing::HasSubstr;

class RecordingFolderTest : public testing::Test
{
protected:
    std::unique_ptr<RecordingFolder> open(const std::string& name = "kept")
    {
        error_.clear();
        return RecordingFolder::open(folder_ / name, error_);
    }

    static unsigned modeOf(const std::string& path)
    {
        struct stat status
        {
        };
        EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777U;
    }

    TemporaryFolder folder_;
    std::string error_;
};

TEST_F(RecordingFolderTest, FoldersAreMadeForTheUserAndTheGroupAlone)
{
    const mode_t before = ::umask(0);
    ASSERT_TRUE(open("a/b")) << error_;
    ::umask(before);
    EXPECT_EQ(modeOf(folder_ / "a"), 0750U);
    EXPECT_EQ(modeOf(folder_ / "a/b"), 0750U);
    EXPECT_EQ(modeOf(folder_ / "a/b/server.lock"), 0640U);
}

TEST_F(RecordingFolderTest, SecondServerIsRefusedWithTheNumberOfTheFirst)
{
    const auto first = open();
    ASSERT_TRUE(first) << error_;
    EXPECT_FALSE(open());
    EXPECT_EQ(error_, folder_ / "kept" + ": another server (process " + std::to_string(::getpid()) +
                          ") uses this folder; each server needs a folder of its own");
}

TEST_F(RecordingFolderTest, FolderIsInUseAsLongAsAServerHasIt)
{
    EXPECT_FALSE(RecordingFolder::isInUse(folder_ / "kept"));
    auto first = open();
    ASSERT_TRUE(first) << error_;
    EXPECT_TRUE(RecordingFolder::isInUse(folder_ / "kept"));
    first.reset();
    EXPECT_FALSE(RecordingFolder::isInUse(folder_ / "kept"));
    EXPECT_TRUE(open()) << error_;
}

TEST_F(RecordingFolderTest, FileInPlaceOfAFolderIsReported)
{
    std::ofstream(folder_ / "kept") << "in the way";
    EXPECT_FALSE(open("kept/deeper"));
    EXPECT_THAT(error_, HasSubstr(folder_ / "kept"));
}

TEST_F(RecordingFolderTest, FolderThatWasReplacedIsNotInPlace)
{
    const auto folder = open();
    EXPECT_TRUE(folder->isInPlace());
    std::filesystem::rename(folder_ / "kept", folder_ / "moved");
    EXPECT_FALSE(folder->isInPlace());
    std::filesystem::create_directory(folder_ / "kept");
    EXPECT_FALSE(folder->isInPlace());
    EXPECT_FALSE(folder->isUnmounted()) << "it never was on a disk of its own";
}

TEST_F(RecordingFolderTest, UnmountedDiskIsNoticedUntilADiskIsMountedAgain)
{
    const PrivateMounts mounts;
    if (!mounts.possible())
    {
        GTEST_SKIP() << mounts.why();
    }
    std::filesystem::create_directory(folder_ / "disk");
    ASSERT_TRUE(mounts.mount(folder_ / "disk", "size=1m"));
    const auto folder = open("disk/kept");
    ASSERT_TRUE(folder) << error_;
    EXPECT_TRUE(folder->isInPlace());
    EXPECT_FALSE(folder->isUnmounted());
    ASSERT_TRUE(mounts.unmount(folder_ / "disk"));
    EXPECT_FALSE(folder->isInPlace());
    EXPECT_TRUE(folder->isUnmounted());
    std::filesystem::create_directory(folder_ / "disk/kept");
    EXPECT_FALSE(folder->isInPlace());
    EXPECT_TRUE(folder->isUnmounted());
    ASSERT_TRUE(mounts.mount(folder_ / "disk", "size=1m"));
    EXPECT_FALSE(folder->isInPlace());
    EXPECT_FALSE(folder->isUnmounted());
}

TEST_F(RecordingFolderTest, SlashesAtTheEndDoNotCount)
{
    EXPECT_EQ(RecordingFolder::withoutSlash("/a/b"), "/a/b");
    EXPECT_EQ(RecordingFolder::withoutSlash("/a/b//"), "/a/b");
    EXPECT_EQ(RecordingFolder::withoutSlash("/"), "/");
}

}  // namespace
}  // namespace refhost

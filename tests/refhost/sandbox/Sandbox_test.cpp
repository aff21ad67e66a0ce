#include "refhost/sandbox/Sandbox.h"

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "refhost/base/MountPoint.h"
#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace
{

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class SandboxTest : public testing::Test
{
protected:
    SandboxTest() : config_(ServerConfig::embedded())
    {
        config_.recording.directory = folder_ / "state/recordings";
    }

    bool known()
    {
        limits_ = FileLimits();
        problem_.clear();
        return Sandbox::limitsFor(config_, folder_ / "etc/ovrtspd.toml", limits_, problem_);
    }

    TemporaryFolder folder_;
    ServerConfig config_;
    FileLimits limits_;
    std::string problem_;
};

TEST_F(SandboxTest, RecordingsMayBeWrittenAndTheirFolderMadeAgain)
{
    EXPECT_TRUE(known()) << problem_;
    EXPECT_THAT(limits_.writable(), Contains(folder_ / "state"));
    struct stat status
    {
    };
    ASSERT_EQ(0, ::stat((folder_ / "state/recordings").c_str(), &status));
    EXPECT_EQ(0u, status.st_mode & 07027);
}

TEST_F(SandboxTest, AFolderForRecordingsIsNotMadeWhereNothingIsRecorded)
{
    config_.cameras[0].streams[0].record = RecordMode::never;
    EXPECT_TRUE(known());
    EXPECT_THAT(limits_.writable(), Not(Contains(folder_ / "state")));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "state"));
}

TEST_F(SandboxTest, RecordingsThatAreThereMayBeWrittenThoughNothingIsRecorded)
{
    config_.cameras[0].streams[0].record = RecordMode::never;
    std::filesystem::create_directories(folder_ / "state/recordings");
    EXPECT_TRUE(known()) << problem_;
    EXPECT_THAT(limits_.writable(), Contains(folder_ / "state")) << "their index and their limits";
}

TEST_F(SandboxTest, FilesOfTheConfigurationMayBeReadAndReplaced)
{
    config_.usersFile = folder_ / "users/users.toml";
    config_.tls.certificate = folder_ / "tls/chain.pem";
    config_.tls.key = folder_ / "private/key.pem";
    config_.tls.clientCa = folder_ / "ca/ca.pem";
    config_.cameras[0].streams[0].source = {SourceConfig::Kind::file, folder_ / "films/film.mp4"};
    EXPECT_TRUE(known());
    for (const char* const name : {"etc", "users", "tls", "private", "ca", "films"})
    {
        EXPECT_THAT(limits_.readable(), Contains(folder_ / name));
        EXPECT_THAT(limits_.writable(), Not(Contains(folder_ / name)));
    }
}

TEST_F(SandboxTest, WholeFileSystemIsNeverPermitted)
{
    config_.tls.certificate = "/chain.pem";
    config_.cameras[0].streams[0].source = {SourceConfig::Kind::file, "/film.mp4"};
    known();
    EXPECT_THAT(limits_.readable(), Not(Contains("/")));
    EXPECT_THAT(limits_.readable(), Contains("/film.mp4"));
    EXPECT_THAT(limits_.writable(), Not(Contains("/")));
}

TEST_F(SandboxTest, FilesOfALaunchLineCannotBeKnown)
{
    config_.cameras[0].streams[1].source = {SourceConfig::Kind::launch, "fakesrc name=video"};
    EXPECT_FALSE(known());
    EXPECT_THAT(problem_, HasSubstr("camera 1/1"));
    EXPECT_THAT(problem_, HasSubstr("is a launch line"));
}

TEST_F(SandboxTest, FolderOfAWavOutputMayBeWritten)
{
    config_.cameras[0].talkBack = Codec::pcmu;
    config_.talkBack.output = "wav";
    config_.talkBack.device = folder_ / "audio/talks/talk.wav";
    EXPECT_TRUE(known());
    // Where it is missing it stays so, and can be made later.
    EXPECT_THAT(limits_.writable(), Contains(folder_.path()));
    ASSERT_EQ(0, ::mkdir((folder_ / "audio").c_str(), 0700));
    ASSERT_EQ(0, ::mkdir((folder_ / "audio/talks").c_str(), 0700));
    EXPECT_TRUE(known());
    EXPECT_THAT(limits_.writable(), Contains(folder_ / "audio"));
}

TEST(MountPoint, IsTheFolderThatAFileSystemIsMountedAt)
{
    EXPECT_EQ("/proc", MountPoint::of("/proc/self"));
    EXPECT_EQ("", MountPoint::of("/"));
    EXPECT_EQ("", MountPoint::of("/no/such/path"));
    EXPECT_NE(MountPoint::deviceOf("/proc"), MountPoint::deviceOf("/"));
    EXPECT_EQ(std::nullopt, MountPoint::deviceOf("/no/such/path"));
}

}  // namespace
}  // namespace refhost

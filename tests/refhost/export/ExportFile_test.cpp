#include "refhost/export/ExportFile.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <fstream>
#include <iterator>

#include "tests/refhost/export/ExportFixture.h"

namespace refhost
{
namespace test
{
namespace
{

using testing::HasSubstr;

class ExportFileTest : public ExportTest
{
protected:
    ExportFileTest()
    {
        record(0, 4);
        source_ = open(0.5, 3.5);
        std::filesystem::create_directory(folder_ / "out");
    }

    bool write(const std::atomic<bool>* stopping = nullptr)
    {
        return ExportFile::write(
            *source_, path_, [this](std::uint64_t done, std::uint64_t) { progress_.push_back(done); },
            stopping, error_);
    }

    std::ptrdiff_t files() const
    {
        return std::distance(std::filesystem::directory_iterator(folder_ / "out"), {});
    }

    std::unique_ptr<Mp4Export> source_;
    const std::string path_ = folder_ / "out/export.mp4";
    std::vector<std::uint64_t> progress_;
};

TEST_F(ExportFileTest, HoldsTheWholeExportAndNothingElseIsLeft)
{
    ASSERT_TRUE(write()) << error_;
    std::ifstream file(path_, std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(bytes, bytesOf(*source_));
    EXPECT_EQ(files(), 1);
    EXPECT_EQ(progress_.back(), source_->size());
    struct stat status
    {
    };
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST_F(ExportFileTest, FailureLeavesTheExistingFileAsItWas)
{
    std::ofstream(path_) << "earlier";
    std::filesystem::remove(index_->all().front().path);
    EXPECT_FALSE(write());
    EXPECT_THAT(error_, HasSubstr("was removed meanwhile"));
    EXPECT_EQ(std::filesystem::file_size(path_), 7U);
    EXPECT_EQ(files(), 1);
}

TEST_F(ExportFileTest, InterruptedExportLeavesNothing)
{
    const std::atomic<bool> stopping{true};
    EXPECT_FALSE(write(&stopping));
    EXPECT_EQ(error_, "interrupted");
    EXPECT_EQ(files(), 0);
}

TEST_F(ExportFileTest, FullDiskIsSaidAndNothingIsLeft)
{
    // Beyond the limit writing fails as on a full disk.
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small{10'000, limit.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &small);
    const bool written = write();
    ::setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, before);
    EXPECT_FALSE(written);
    EXPECT_THAT(error_, HasSubstr("export.mp4: "));
    EXPECT_EQ(files(), 0);
}

TEST_F(ExportFileTest, MissingFolderAndDevicesAreRefused)
{
    const auto nothing = [](std::uint64_t, std::uint64_t) {};
    EXPECT_FALSE(ExportFile::write(*source_, folder_ / "none/export.mp4", nothing, nullptr, error_));
    EXPECT_THAT(error_, HasSubstr("none/export.mp4"));
    EXPECT_FALSE(ExportFile::write(*source_, folder_ / "out", nothing, nullptr, error_));
    EXPECT_THAT(error_, HasSubstr("not a regular file"));
}

}  // namespace
}  // namespace test
}  // namespace refhost

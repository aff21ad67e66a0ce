#include "refhost/sandbox/FileLimits.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <string>

#include "refhost/base/Descriptor.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/sandbox/InChild.h"

namespace refhost
{
namespace
{

constexpr int notApplied = 255;

int errorOfOpening(const std::string& path, int flags)
{
    const Descriptor file(::open(path.c_str(), flags | O_CLOEXEC, 0600));
    return file ? 0 : errno;
}

/// Three folders with a file each, of which one may be read and one written.
class FileLimitsTest : public testing::Test
{
protected:
    FileLimitsTest()
    {
        constexpr long createRuleset = 444;
        available_ = ::syscall(createRuleset, nullptr, 0, 1) > 0;
        for (const char* const name : {"readable", "writable", "other"})
        {
            ::mkdir((folder_ / name).c_str(), 0700);
            std::ofstream(folder_ / name + "/file") << "text";
        }
        limits_.read(folder_ / "readable");
        limits_.write(folder_ / "writable");
        limits_.read(folder_ / "missing");
    }

    void SetUp() override
    {
        if (!available_)
        {
            GTEST_SKIP() << "this kernel has no Landlock";
        }
    }

    template <class Call>
    int limited(const Call& call) const
    {
        return inChild(
            [this, &call]
            {
                std::string problem;
                return limits_.apply(problem) ? call() : notApplied;
            });
    }
    int opening(const std::string& name, int flags) const
    {
        return limited([this, &name, flags] { return errorOfOpening(folder_ / name, flags); });
    }

    bool available_ = false;
    TemporaryFolder folder_;
    FileLimits limits_;
};

TEST_F(FileLimitsTest, WhatIsPermittedCanBeRead)
{
    EXPECT_EQ(0, opening("readable/file", O_RDONLY));
    EXPECT_EQ(0, opening("writable/file", O_RDONLY));
    EXPECT_EQ(EACCES, opening("other/file", O_RDONLY));
    EXPECT_EQ(EACCES, opening("other", O_RDONLY | O_DIRECTORY));
    EXPECT_EQ(EACCES, limited([] { return errorOfOpening("/etc/passwd", O_RDONLY); }));
}

TEST_F(FileLimitsTest, OnlyWhatIsPermittedCanBeWrittenMadeAndRemoved)
{
    EXPECT_EQ(EACCES, opening("readable/file", O_WRONLY));
    EXPECT_EQ(EACCES, opening("readable/new", O_WRONLY | O_CREAT));
    EXPECT_EQ(EACCES, opening("other/new", O_WRONLY | O_CREAT));
    EXPECT_EQ(0, opening("writable/new", O_WRONLY | O_CREAT));
    EXPECT_EQ(EACCES,
              limited([this] { return ::unlink((folder_ / "readable/file").c_str()) < 0 ? errno : 0; }));
    EXPECT_EQ(0,
              limited([this] { return ::mkdir((folder_ / "writable/sub").c_str(), 0700) < 0 ? errno : 0; }));
    EXPECT_EQ(0, limited(
                     [this]
                     {
                         return std::rename((folder_ / "writable/file").c_str(),
                                            (folder_ / "writable/sub/file").c_str()) < 0
                                    ? errno
                                    : 0;
                     }));
    EXPECT_EQ(0, limited([this] { return ::unlink((folder_ / "writable/new").c_str()) < 0 ? errno : 0; }));
}

TEST_F(FileLimitsTest, ASymbolicLinkLeadsNowhereElse)
{
    ASSERT_EQ(0, ::symlink((folder_ / "other/file").c_str(), (folder_ / "readable/link").c_str()));
    EXPECT_EQ(EACCES, opening("readable/link", O_RDONLY));
}

TEST_F(FileLimitsTest, WhatIsOpenStaysOpen)
{
    const Descriptor open(::open((folder_ / "other/file").c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(0, limited(
                     [&open]
                     {
                         char byte = 0;
                         return ::read(open.get(), &byte, 1) == 1 ? 0 : errno;
                     }));
}

TEST_F(FileLimitsTest, ProgramsAreNotStartedEvenWhereFilesCanBeRead)
{
    limits_.read("/usr");
    limits_.read("/lib");
    limits_.read("/lib64");
    EXPECT_EQ(EACCES, limited(
                          []
                          {
                              char name[] = "/usr/bin/true";
                              char* const arguments[] = {name, nullptr};
                              ::execve(name, arguments, nullptr);
                              return errno;
                          }));
}

}  // namespace
}  // namespace refhost

#pragma once

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <string>

/// Small file systems of a test's own: mounts that no other process sees, gone with the test's process.
///
/// Requires the permission to mount; without it the test is to be skipped with the reason of why():
///
///     PrivateMounts mounts;
///     if (!mounts.possible())
///     {
///         GTEST_SKIP() << mounts.why();
///     }
///     ASSERT_TRUE(mounts.mount(folder, "size=16m"));
///
/// Threads: one, before it starts others: those share its view.
class PrivateMounts
{
public:
    PrivateMounts()
    {
        if (unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        {
            why_ = std::string("mounting is not permitted: ") + std::strerror(errno);
        }
    }

    bool possible() const
    {
        return why_.empty();
    }
    const std::string& why() const
    {
        return why_;
    }

    /// Mounts an empty file system in memory. \param options  of tmpfs, such as "size=16m,nr_inodes=1k"
    bool mount(const std::string& folder, const char* options) const
    {
        return ::mount("none", folder.c_str(), "tmpfs", 0, options) == 0;
    }
    /// Unmounts a file system that is in use, as `umount -l` does.
    bool unmount(const std::string& folder) const
    {
        return ::umount2(folder.c_str(), MNT_DETACH) == 0;
    }
    /// Moves a mounted file system to another folder.
    bool move(const std::string& from, const std::string& to) const
    {
        return ::mount(from.c_str(), to.c_str(), nullptr, MS_MOVE, nullptr) == 0;
    }

private:
    std::string why_;
};

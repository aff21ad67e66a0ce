#include "refhost/sandbox/SystemCallFilter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <cerrno>
#include <future>
#include <string>
#include <thread>

#include "tests/refhost/sandbox/InChild.h"

namespace refhost
{
namespace
{

constexpr int notApplied = 255;

/// errno of a call in a filtered process; 0: it succeeded.
template <class Call>
int errorOf(const Call& call)
{
    return inChild(
        [&call]
        {
            std::string problem;
            if (!SystemCallFilter::apply(problem))
            {
                return notApplied;
            }
            errno = 0;
            return call() < 0 ? errno : 0;
        });
}

TEST(SystemCallFilter, ProgramsAreNotStarted)
{
    char name[] = "/bin/true";
    char* const arguments[] = {name, nullptr};
    EXPECT_EQ(EPERM, errorOf([&] { return ::execve(name, arguments, nullptr); }));
    EXPECT_EQ(EPERM, errorOf([&] { return ::syscall(SYS_execveat, AT_FDCWD, name, arguments, nullptr, 0); }));
}

TEST(SystemCallFilter, OtherProcessesAreOutOfReach)
{
    EXPECT_EQ(EPERM, errorOf([] { return ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr); }));
    EXPECT_EQ(
        EPERM,
        errorOf([] { return ::syscall(SYS_process_vm_readv, ::getppid(), nullptr, 0, nullptr, 0, 0); }));
}

TEST(SystemCallFilter, SystemAndNamespacesAreOutOfReach)
{
    EXPECT_EQ(EPERM, errorOf([] { return ::mount("none", "/", "tmpfs", 0, nullptr); }));
    EXPECT_EQ(EPERM, errorOf([] { return ::unshare(CLONE_NEWUSER); }));
    EXPECT_EQ(EPERM,
              errorOf([] { return ::syscall(SYS_clone, CLONE_NEWUSER, nullptr, nullptr, nullptr, 0); }));
    EXPECT_EQ(EPERM, errorOf([] { return ::chroot("/"); }));
    for (const long call : {SYS_bpf, SYS_keyctl, SYS_add_key, SYS_perf_event_open, SYS_init_module,
                            SYS_finit_module, SYS_delete_module, SYS_kexec_load, SYS_reboot, SYS_setns})
    {
        EXPECT_EQ(EPERM, errorOf([call] { return ::syscall(call, 0, 0, 0, 0, 0); })) << call;
    }
#ifdef SYS_userfaultfd
    EXPECT_EQ(EPERM, errorOf([] { return ::syscall(SYS_userfaultfd, 0); }));
#endif
    constexpr long uringSetup = 425;
    EXPECT_EQ(EPERM, errorOf([] { return ::syscall(uringSetup, 1, nullptr); }));
}

TEST(SystemCallFilter, UsersAreNotChanged)
{
    EXPECT_EQ(EPERM, errorOf([] { return ::syscall(SYS_setuid, ::getuid()); }));
    EXPECT_EQ(EPERM, errorOf([] { return ::syscall(SYS_setresgid, ::getgid(), ::getgid(), ::getgid()); }));
    EXPECT_EQ(EPERM, errorOf([] { return ::syscall(SYS_setgroups, 0, nullptr); }));
    EXPECT_EQ(EPERM, errorOf([] { return ::syscall(SYS_capset, nullptr, nullptr); }));
}

TEST(SystemCallFilter, OnlySocketsOfCommonFamiliesAreMade)
{
    for (const int family : {AF_UNIX, AF_INET, AF_INET6})
    {
        EXPECT_EQ(0, errorOf([family] { return ::socket(family, SOCK_DGRAM, 0); })) << family;
    }
    EXPECT_EQ(0, errorOf([] { return ::socket(AF_NETLINK, SOCK_RAW, 0); }));
    for (const int family : {AF_AX25, AF_APPLETALK, AF_PACKET, AF_ALG, AF_VSOCK, AF_BLUETOOTH})
    {
        EXPECT_EQ(EPERM, errorOf([family] { return ::socket(family, SOCK_DGRAM, 0); })) << family;
    }
}

TEST(SystemCallFilter, ThreadsAreStillMade)
{
    EXPECT_EQ(0, errorOf(
                     []
                     {
                         int ran = -1;
                         std::thread([&ran] { ran = 0; }).join();
                         return ran;
                     }));
}

TEST(SystemCallFilter, HoldsInThreadsThatRunAlready)
{
    const int error = inChild(
        []
        {
            std::promise<void> applied;
            std::promise<int> result;
            std::thread other(
                [&]
                {
                    applied.get_future().wait();
                    result.set_value(::unshare(CLONE_NEWNS) < 0 ? errno : 0);
                });
            std::string problem;
            const bool done = SystemCallFilter::apply(problem);
            applied.set_value();
            const int found = result.get_future().get();
            other.join();
            return done ? found : notApplied;
        });
    EXPECT_EQ(EPERM, error);
}

}  // namespace
}  // namespace refhost

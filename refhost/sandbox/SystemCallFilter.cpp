#include "refhost/sandbox/SystemCallFilter.h"

#include <sched.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <type_traits>

namespace refhost
{
namespace
{

struct Released
{
    void operator()(void* filter) const
    {
        seccomp_release(filter);
    }
};
using Filter = std::unique_ptr<std::remove_pointer_t<scmp_filter_ctx>, Released>;

/// By name: what the system's headers or this architecture do not have is left out.
constexpr auto refused = {
    // Starting programs.
    "execve", "execveat",
    // Other processes.
    "ptrace", "process_vm_readv", "process_vm_writev", "process_madvise", "kcmp", "pidfd_getfd",
    // What is mounted where, and other namespaces.
    "mount", "umount", "umount2", "move_mount", "open_tree", "fsopen", "fsmount", "fsconfig", "fspick",
    "mount_setattr", "pivot_root", "chroot", "unshare", "setns", "swapon", "swapoff", "quotactl",
    "quotactl_fd", "acct",
    // Files past their paths.
    "open_by_handle_at", "name_to_handle_at", "fanotify_init", "lookup_dcookie",
    // Users and privileges.
    "setuid", "setgid", "setreuid", "setregid", "setresuid", "setresgid", "setfsuid", "setfsgid", "setgroups",
    "setuid32", "setgid32", "setreuid32", "setregid32", "setresuid32", "setresgid32", "setfsuid32",
    "setfsgid32", "setgroups32", "capset", "personality",
    // The kernel itself, and its large surfaces.
    "init_module", "finit_module", "delete_module", "create_module", "kexec_load", "kexec_file_load",
    "reboot", "bpf", "perf_event_open", "userfaultfd", "io_uring_setup", "io_uring_enter",
    "io_uring_register", "keyctl", "add_key", "request_key", "syslog", "_sysctl", "nfsservctl", "uselib",
    "vm86", "vm86old", "modify_ldt", "iopl", "ioperm",
    // The machine's clock and name.
    "settimeofday", "clock_settime", "clock_settime64", "stime", "sethostname", "setdomainname"};

/// \returns 0, or a negative error
int refuse(scmp_filter_ctx filter, const char* call, std::initializer_list<scmp_arg_cmp> when = {},
           int error = EPERM)
{
    const int number = seccomp_syscall_resolve_name(call);
    if (number == __NR_SCMP_ERROR)
    {
        return 0;
    }
    const int result = seccomp_rule_add_array(filter, SCMP_ACT_ERRNO(static_cast<unsigned>(error)), number,
                                              static_cast<unsigned>(when.size()), when.begin());
    // Another architecture's call, or one that libseccomp translates to several with arguments.
    return result == -EDOM || result == -EFAULT ? 0 : result;
}

int refuseNamespaces(scmp_filter_ctx filter)
{
    int result = 0;
    for (const unsigned flag : {CLONE_NEWNS, CLONE_NEWUSER, CLONE_NEWPID, CLONE_NEWNET, CLONE_NEWIPC,
                                CLONE_NEWUTS, CLONE_NEWCGROUP})
    {
        const int added = refuse(filter, "clone", {SCMP_A0(SCMP_CMP_MASKED_EQ, flag, flag)});
        result = result == 0 ? added : result;
    }
    // Its flags are out of a filter's reach: the C library goes on with clone().
    const int added = refuse(filter, "clone3", {}, ENOSYS);
    return result == 0 ? added : result;
}

int refuseRareSockets(scmp_filter_ctx filter)
{
    int result = refuse(filter, "socket", {SCMP_A0(SCMP_CMP_GT, AF_NETLINK)});
    for (unsigned family = 0; family < AF_NETLINK; ++family)
    {
        if (family != AF_UNIX && family != AF_INET && family != AF_INET6)
        {
            const int added = refuse(filter, "socket", {SCMP_A0(SCMP_CMP_EQ, family)});
            result = result == 0 ? added : result;
        }
    }
    return result;
}

int addRules(scmp_filter_ctx filter)
{
    // Input for a terminal that others type at.
    int result = refuse(filter, "ioctl", {SCMP_A1(SCMP_CMP_MASKED_EQ, 0xffffffffU, TIOCSTI)});
    for (const char* const call : refused)
    {
        const int added = refuse(filter, call);
        result = result == 0 ? added : result;
    }
    for (const int added : {refuseNamespaces(filter), refuseRareSockets(filter)})
    {
        result = result == 0 ? added : result;
    }
    return result;
}

}  // namespace

bool SystemCallFilter::apply(std::string& problem)
{
    const Filter filter(seccomp_init(SCMP_ACT_ALLOW));
    if (filter == nullptr)
    {
        problem = "no filter of system calls: out of memory";
        return false;
    }
    int result = seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_TSYNC, 1);
    result = result == 0 ? seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_NNP, 0) : result;
    result = result == 0 ? addRules(filter.get()) : result;
    result = result == 0 ? seccomp_load(filter.get()) : result;
    if (result != 0)
    {
        problem = std::string("the kernel takes no filter of system calls: ") + std::strerror(-result);
    }
    return result == 0;
}

}  // namespace refhost

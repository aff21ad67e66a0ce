#include "refhost/hooks/HookCommand.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>
#include <vector>

#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

/// How long a killed process may take to end.
constexpr std::chrono::seconds killTime(1);

struct Pipe
{
    Descriptor read;
    Descriptor write;

    bool open()
    {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        {
            return false;
        }
        read = Descriptor(ends[0]);
        write = Descriptor(ends[1]);
        return true;
    }
};

/// The server's environment without what the service manager meant for the server's own process.
std::vector<char*> environmentOfCommand()
{
    constexpr std::array<std::string_view, 6> own{
        "NOTIFY_SOCKET=", "LISTEN_FDS=", "LISTEN_PID=", "LISTEN_FDNAMES=", "WATCHDOG_USEC=", "WATCHDOG_PID="};
    std::vector<char*> kept;
    for (char** entry = environ; *entry != nullptr; ++entry)
    {
        const std::string_view text = *entry;
        bool isOwn = false;
        for (const std::string_view name : own)
        {
            isOwn = isOwn || text.substr(0, name.size()) == name;
        }
        if (!isOwn)
        {
            kept.push_back(*entry);
        }
    }
    kept.push_back(nullptr);
    return kept;
}

class Actions
{
public:
    Actions()
    {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(
            &attributes_,
            static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP));
    }
    ~Actions()
    {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    Actions(const Actions&) = delete;
    Actions& operator=(const Actions&) = delete;

    /// \returns an errno
    int spawn(const std::string& command, const Pipe& input, const Pipe& output, pid_t& pid)
    {
        posix_spawn_file_actions_adddup2(&actions_, input.read.get(), STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions_, output.write.get(), STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions_, output.write.get(), STDERR_FILENO);
        posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
        std::string shell = "sh";
        std::string option = "-c";
        std::string text = command;
        const std::array<char*, 4> arguments{shell.data(), option.data(), text.data(), nullptr};
        const std::vector<char*> environment = environmentOfCommand();
        return posix_spawn(&pid, "/bin/sh", &actions_, &attributes_, arguments.data(), environment.data());
    }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

/// A command that runs.
class Running
{
public:
    Running(pid_t pid, Descriptor input, Descriptor output)
        : pid_(pid),
          process_(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))),
          input_(std::move(input)),
          output_(std::move(output))
    {
        (void)::fcntl(input_.get(), F_SETFL, O_NONBLOCK);
        (void)::fcntl(output_.get(), F_SETFL, O_NONBLOCK);
    }

    HookOutcome finish(std::string_view text, HookStop::Clock::time_point deadline, int stop)
    {
        std::string ended;
        while (ended.empty())
        {
            std::array<pollfd, 4> waited{{{process_.get(), POLLIN, 0},
                                          {stop, POLLIN, 0},
                                          {output_.get(), POLLIN, 0},
                                          {text.empty() ? -1 : input_.get(), POLLOUT, 0}}};
            const int ready = ::poll(waited.data(), waited.size(), HookStop::millisecondsTo(deadline));
            if (!process_ || waited[0].revents != 0)
            {
                break;
            }
            write(text, waited[3].revents != 0);
            read();
            if (ready == 0 && HookStop::Clock::now() >= deadline)
            {
                ended = "it did not end in time, and was killed";
            }
            else if (waited[1].revents != 0)
            {
                ended = "it was killed, because the server ends";
            }
            else if (printed_ > HookCommand::maxOutput)
            {
                ended = "it printed too much, and was killed";
            }
        }
        return outcome(ended);
    }

private:
    void write(std::string_view& text, bool writable)
    {
        if (writable && !text.empty())
        {
            const ssize_t count = ::write(input_.get(), text.data(), text.size());
            if (count >= 0)
            {
                text.remove_prefix(static_cast<std::size_t>(count));
            }
            else if (errno != EAGAIN && errno != EINTR)
            {
                text = {};  // it does not read it
            }
        }
        if (text.empty())
        {
            input_ = Descriptor();
        }
    }

    void read()
    {
        std::array<char, 4096> bytes{};
        constexpr int maxReads = 16;
        for (int i = 0; i < maxReads && output_; ++i)
        {
            const ssize_t count = ::read(output_.get(), bytes.data(), bytes.size());
            if (count < 0)
            {
                return;
            }
            if (count == 0)
            {
                output_ = Descriptor();
                return;
            }
            const auto size = static_cast<std::size_t>(count);
            printed_ += size;
            kept_.append(bytes.data(), std::min(size, HookCommand::maxKept - kept_.size()));
        }
    }

    /// Kills what is left of the process group, and takes the exit status.
    HookOutcome outcome(const std::string& ended)
    {
        // Also what the command left in the background: until it is waited for, the group's number is not used again.
        (void)::kill(-pid_, SIGKILL);
        pollfd waited{process_.get(), POLLIN, 0};
        (void)::poll(&waited, 1, HookStop::millisecondsTo(HookStop::Clock::now() + killTime));
        int status = 0;
        const bool gone = ::waitpid(pid_, &status, WNOHANG) == pid_;
        read();
        if (!ended.empty() || !gone)
        {
            return {false, describe(ended.empty() ? "it cannot be ended" : ended)};
        }
        if (WIFEXITED(status))
        {
            const int code = WEXITSTATUS(status);
            return {code == 0, describe(fmt::format("exit status {}", code))};
        }
        return {false, describe(fmt::format("ended by signal {}", WTERMSIG(status)))};
    }

    std::string describe(const std::string& how) const
    {
        const std::string_view line = std::string_view(kept_).substr(0, kept_.find('\n'));
        return line.empty() ? how : fmt::format("{}: {}", how, Log::safe(line));
    }

    const pid_t pid_;
    const Descriptor process_;
    Descriptor input_;
    Descriptor output_;
    std::size_t printed_ = 0;
    std::string kept_;
};

}  // namespace

HookOutcome HookCommand::run(const std::string& command, std::string_view input,
                             HookStop::Clock::time_point deadline, int stop)
{
    Pipe in;
    Pipe out;
    if (!in.open() || !out.open())
    {
        return {false, fmt::format("no pipe: {}", std::strerror(errno))};
    }
    pid_t pid = -1;
    const int problem = Actions().spawn(command, in, out, pid);
    if (problem != 0)
    {
        return {false, fmt::format("it cannot be started: {}", std::strerror(problem))};
    }
    in.read = Descriptor();
    out.write = Descriptor();
    return Running(pid, std::move(in.write), std::move(out.read)).finish(input, deadline, stop);
}

}  // namespace refhost

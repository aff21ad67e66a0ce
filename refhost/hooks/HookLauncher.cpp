#include "refhost/hooks/HookLauncher.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "refhost/hooks/HookCommand.h"
#include "refhost/hooks/HookPost.h"
#include "refhost/hooks/HookTargets.h"
#include "refhost/threads/AllSignalsBlocked.h"

namespace refhost
{
namespace
{

/// Of the command's outcome, beyond its own time.
constexpr std::chrono::seconds outcomeTime(3);
constexpr std::chrono::seconds endTime(1);
constexpr std::size_t maxOutcome = 4096;

constexpr auto tooMany = "too many commands run";
constexpr auto gone = "the process that runs commands has ended";

bool isCommand(const std::string& target)
{
    return !target.empty() && !HookPost::isUrl(target);
}

/// Two ends of a connection that keeps messages apart.
struct Channel
{
    Descriptor near;
    Descriptor far;

    bool open()
    {
        std::array<int, 2> ends{};
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        {
            return false;
        }
        near = Descriptor(ends[0]);
        far = Descriptor(ends[1]);
        return true;
    }
};

/// A message of one byte, a text, and maybe a descriptor.
class Message
{
public:
    Message(unsigned char& head, char* text, std::size_t size) : parts_{{{&head, 1}, {text, size}}}
    {
        header_.msg_iov = parts_.data();
        header_.msg_iovlen = parts_.size();
    }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    /// \returns bytes of the text; negative: errno says why not
    ssize_t send(int socket, int descriptor)
    {
        if (descriptor >= 0)
        {
            attach();
            cmsghdr* const part = CMSG_FIRSTHDR(&header_);
            part->cmsg_level = SOL_SOCKET;
            part->cmsg_type = SCM_RIGHTS;
            part->cmsg_len = CMSG_LEN(sizeof descriptor);
            std::memcpy(CMSG_DATA(part), &descriptor, sizeof descriptor);
        }
        return ::sendmsg(socket, &header_, MSG_DONTWAIT | MSG_NOSIGNAL) - 1;
    }

    /// \returns bytes of the text; negative: there is none, or it does not fit
    ssize_t receive(int socket, Descriptor& descriptor)
    {
        attach();
        const ssize_t count = ::recvmsg(socket, &header_, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        if (count <= 0)
        {
            return -1;
        }
        const cmsghdr* const part = CMSG_FIRSTHDR(&header_);
        if (part != nullptr && part->cmsg_type == SCM_RIGHTS && part->cmsg_len == CMSG_LEN(sizeof(int)))
        {
            int number = -1;
            std::memcpy(&number, CMSG_DATA(part), sizeof number);
            descriptor = Descriptor(number);
        }
        return (header_.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0 ? -1 : count - 1;
    }

private:
    void attach()
    {
        header_.msg_control = control_.data();
        header_.msg_controllen = control_.size();
    }

    std::array<iovec, 2> parts_;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control_{};
    msghdr header_{};
};

void answer(int channel, const HookOutcome& outcome)
{
    unsigned char done = outcome.done ? 1 : 0;
    std::string text = outcome.text.substr(0, maxOutcome);
    (void)Message(done, text.data(), text.size()).send(channel, -1);
}

/// What the process does.
class Service
{
public:
    /// \param requests  moved to `place`
    Service(const HooksConfig& config, int requests) : timeout_(config.timeout)
    {
        for (const HookTarget& each : hookTargets)
        {
            const std::string& target = config.*each.target;
            commands_.push_back(isCommand(target) ? target : std::string());
        }
        ::dup2(requests, place);
        ::syscall(SYS_close_range, place + 1, ~0U, 0);
        const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
        for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        {
            ::dup2(nowhere, standard);
        }
        sigset_t ended;
        sigemptyset(&ended);
        sigaddset(&ended, SIGCHLD);
        ended_ = Descriptor(::signalfd(-1, &ended, SFD_CLOEXEC | SFD_NONBLOCK));
    }

    /// Returns when the server has closed its end.
    void run()
    {
        for (;;)
        {
            std::array<pollfd, 2> waited{{{place, POLLIN, 0}, {ended_.get(), POLLIN, 0}}};
            if (::poll(waited.data(), waited.size(), -1) < 0 && errno != EINTR)
            {
                return;
            }
            if (waited[1].revents != 0)
            {
                countEnded();
            }
            if ((waited[0].revents & POLLIN) != 0)
            {
                serve();
            }
            else if (waited[0].revents != 0)
            {
                return;
            }
        }
    }

private:
    static constexpr int place = STDERR_FILENO + 1;

    void countEnded()
    {
        signalfd_siginfo ignored{};
        (void)!::read(ended_.get(), &ignored, sizeof ignored);
        while (::waitpid(-1, nullptr, WNOHANG) > 0)
        {
            --running_;
        }
    }

    void serve()
    {
        unsigned char hook = 0;
        Descriptor channel;
        const ssize_t size = Message(hook, input_.data(), input_.size()).receive(place, channel);
        if (size < 0 && !channel)
        {
            // The end of the connection is readable, too.
            pollfd peer{place, POLLRDHUP, 0};
            if (::poll(&peer, 1, 0) > 0)
            {
                ::_exit(0);
            }
            return;
        }
        if (size < 0 || !channel || hook >= commands_.size() || commands_[hook].empty())
        {
            return;
        }
        if (running_ >= HookLauncher::maxRunning)
        {
            answer(channel.get(), {false, tooMany});
            return;
        }
        start(commands_[hook], static_cast<std::size_t>(size), channel.get());
    }

    void start(const std::string& command, std::size_t size, int channel)
    {
        const pid_t process = ::fork();
        if (process < 0)
        {
            answer(channel, {false, fmt::format("it cannot be started: {}", std::strerror(errno))});
            return;
        }
        if (process > 0)
        {
            ++running_;
            return;
        }
        ::close(place);
        const auto deadline = HookStop::Clock::now() + timeout_;
        answer(channel, HookCommand::run(command, std::string_view(input_.data(), size), deadline, channel));
        ::_exit(0);
    }

    const std::chrono::seconds timeout_;
    std::vector<std::string> commands_;
    Descriptor ended_;
    std::size_t running_ = 0;
    std::vector<char> input_ = std::vector<char>(HookLauncher::maxInput);
};

[[noreturn]] void serveAsProcess(const HooksConfig& config, int requests)
{
    ::prctl(PR_SET_NAME, "ovrtspd-hooks", 0, 0, 0);
    // As the server, and whatever it starts.
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    Service(config, requests).run();
    ::_exit(0);
}

/// \returns whether `event` came before the deadline and stop()
bool await(int descriptor, short event, HookStop::Clock::time_point deadline, const HookStop& stop)
{
    for (;;)
    {
        std::array<pollfd, 2> waited{{{descriptor, event, 0}, {stop.descriptor(), POLLIN, 0}}};
        const int ready = ::poll(waited.data(), waited.size(), HookStop::millisecondsTo(deadline));
        if (waited[1].revents != 0 || (ready == 0 && HookStop::Clock::now() >= deadline))
        {
            return false;
        }
        if (ready > 0)
        {
            return true;
        }
    }
}

HookOutcome givenUp(const HookStop& stop)
{
    return {false, stop.isStopped() ? "it was killed, because the server ends"
                                    : "the process that runs commands hangs"};
}

HookOutcome outcomeFrom(int channel)
{
    unsigned char done = 0;
    std::string text(maxOutcome, '\0');
    Descriptor none;
    const ssize_t size = Message(done, text.data(), text.size()).receive(channel, none);
    if (size < 0)
    {
        return {false, gone};
    }
    text.resize(static_cast<std::size_t>(size));
    return {done == 1, text};
}

}  // namespace

std::unique_ptr<HookLauncher> HookLauncher::start(const HooksConfig& config)
{
    const bool needed =
        std::any_of(hookTargets.begin(), hookTargets.end(),
                    [&config](const HookTarget& each) { return isCommand(config.*each.target); });
    return needed ? std::unique_ptr<HookLauncher>(new HookLauncher(config)) : nullptr;
}

HookLauncher::HookLauncher(const HooksConfig& config) : timeout_(config.timeout)
{
    Channel requests;
    if (!requests.open())
    {
        throw std::system_error(errno, std::generic_category(), "socketpair for hooks");
    }
    const AllSignalsBlocked blocked;
    process_ = ::fork();
    if (process_ < 0)
    {
        throw std::system_error(errno, std::generic_category(), "process for hooks");
    }
    if (process_ == 0)
    {
        serveAsProcess(config, requests.far.get());
    }
    requests_ = std::move(requests.near);
}

HookLauncher::~HookLauncher()
{
    requests_.reset();
    // The sandbox permits no signal to it; it needs none.
    const Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, process_, 0)));
    pollfd waited{process.get(), POLLIN, 0};
    (void)::poll(&waited, 1, HookStop::millisecondsTo(HookStop::Clock::now() + endTime));
    (void)::waitpid(process_, nullptr, WNOHANG);
}

HookOutcome HookLauncher::run(std::size_t hook, const std::string& input, const HookStop& stop) const
{
    if (input.size() > maxInput)
    {
        return {false, "the event is too long"};
    }
    Channel channel;
    if (!channel.open())
    {
        return {false, fmt::format("no socket: {}", std::strerror(errno))};
    }
    const auto deadline = HookStop::Clock::now() + timeout_ + outcomeTime;
    auto head = static_cast<unsigned char>(hook);
    std::string text = input;
    while (Message(head, text.data(), text.size()).send(requests_.get(), channel.far.get()) < 0)
    {
        if (errno != EAGAIN && errno != EINTR)
        {
            return {false, gone};
        }
        if (!await(requests_.get(), POLLOUT, deadline, stop))
        {
            return givenUp(stop);
        }
    }
    channel.far.reset();
    return await(channel.near.get(), POLLIN, deadline, stop) ? outcomeFrom(channel.near.get())
                                                             : givenUp(stop);
}

}  // namespace refhost

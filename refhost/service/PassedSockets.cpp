#include "refhost/service/PassedSockets.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "refhost/base/Decimal.h"
#include "refhost/base/Log.h"
#include "refhost/service/TakenVariable.h"

namespace refhost
{
namespace
{

constexpr int firstDescriptor = 3;  // the manager passes them from this one on

std::vector<std::string> splitNames(const std::string& text)
{
    std::vector<std::string> names;
    std::size_t start = 0;
    while (start <= text.size() && !text.empty())
    {
        const std::size_t end = std::min(text.find(':', start), text.size());
        names.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return names;
}

int optionOf(int descriptor, int name)
{
    int value = -1;
    socklen_t size = sizeof value;
    return ::getsockopt(descriptor, SOL_SOCKET, name, &value, &size) == 0 ? value : -1;
}

bool isTcpListener(int descriptor)
{
    const int domain = optionOf(descriptor, SO_DOMAIN);
    return (domain == AF_INET || domain == AF_INET6) && optionOf(descriptor, SO_TYPE) == SOCK_STREAM &&
           optionOf(descriptor, SO_ACCEPTCONN) == 1;
}

}  // namespace

PassedSockets PassedSockets::fromEnvironment(const std::vector<std::string>& names,
                                             std::vector<std::string>& problems)
{
    const auto receiver = parseDecimal<pid_t>(takenVariable("LISTEN_PID"));
    const int count = parseDecimal<int>(takenVariable("LISTEN_FDS"), maxSockets).value_or(0);
    std::vector<std::string> given = splitNames(takenVariable("LISTEN_FDNAMES"));
    PassedSockets passed;
    if (receiver != ::getpid())
    {
        return passed;  // meant for a process that started this one
    }
    given.resize(static_cast<std::size_t>(count));
    const auto isKnown = [&names](const std::string& name)
    { return std::find(names.begin(), names.end(), name) != names.end(); };
    if (count == 1 && !isKnown(given.front()))
    {
        given.front() = names.front();
    }
    for (int i = 0; i < count; ++i)
    {
        const int number = firstDescriptor + i;
        ::fcntl(number, F_SETFD, FD_CLOEXEC);
        Descriptor socket(number);
        const std::string& name = given[static_cast<std::size_t>(i)];
        const std::string which = fmt::format("the socket \"{}\" of the service manager", Log::safe(name));
        if (!isTcpListener(number))
        {
            problems.push_back(which + " is no listening TCP socket (ListenStream=) and is not used");
        }
        else if (!isKnown(name))
        {
            problems.push_back(fmt::format("{} is not used: FileDescriptorName= must be one of {}", which,
                                           fmt::join(names, ", ")));
        }
        else if (passed.address(name))
        {
            problems.push_back(which + " is passed more than once; only the first one is used");
        }
        else
        {
            ::fcntl(number, F_SETFL, ::fcntl(number, F_GETFL) | O_NONBLOCK);
            passed.sockets_.push_back({name, std::move(socket)});
        }
    }
    return passed;
}

std::optional<SocketAddress> PassedSockets::address(const std::string& name) const
{
    const auto found = std::find_if(sockets_.begin(), sockets_.end(),
                                    [&name](const Passed& each) { return each.name == name; });
    return found == sockets_.end() ? std::nullopt
                                   : std::optional(SocketAddress::localOf(found->socket.get()));
}

Descriptor PassedSockets::take(const std::string& name)
{
    const auto found = std::find_if(sockets_.begin(), sockets_.end(),
                                    [&name](const Passed& each) { return each.name == name; });
    if (found == sockets_.end())
    {
        return Descriptor();
    }
    Descriptor taken = std::move(found->socket);
    sockets_.erase(found);
    return taken;
}

}  // namespace refhost

#include "refhost/net/ConnectFailure.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

namespace refhost
{

std::string ConnectFailure::peer(std::string_view host, int port)
{
    return host.find(':') == std::string_view::npos ? fmt::format("{}:{}", host, port)
                                                    : fmt::format("[{}]:{}", host, port);
}

std::string ConnectFailure::text(std::string_view host, int port, int problem)
{
    if (problem == ECONNREFUSED)
    {
        return fmt::format("connection refused by {}", peer(host, port));
    }
    if (problem == ETIMEDOUT)
    {
        return fmt::format("no answer from {}: timed out", peer(host, port));
    }
    return text(host, port, std::strerror(problem));
}

std::string ConnectFailure::text(std::string_view host, int port, std::string_view why)
{
    return fmt::format("cannot connect to {}: {}", peer(host, port), why);
}

}  // namespace refhost

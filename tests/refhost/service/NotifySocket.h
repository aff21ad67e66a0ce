#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "refhost/base/Descriptor.h"
#include "tests/TemporaryFolder.h"

namespace refhost
{

/// A service manager's end of the reports: the socket that NOTIFY_SOCKET names while it lives.
class NotifySocket
{
public:
    NotifySocket() : path_(folder_ / "notify")
    {
        bindTo(path_, 1);
        ::setenv("NOTIFY_SOCKET", path_.c_str(), 1);
    }
    /// In the abstract name space.
    explicit NotifySocket(const std::string& abstractName)
    {
        bindTo(abstractName, 0);
        ::setenv("NOTIFY_SOCKET", abstractName.c_str(), 1);
    }
    ~NotifySocket()
    {
        ::unsetenv("NOTIFY_SOCKET");
    }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    /// The next report; empty when there is none.
    std::string next()
    {
        std::array<char, 4096> buffer{};
        const ssize_t size = ::recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        return size < 0 ? "" : std::string(buffer.data(), static_cast<std::size_t>(size));
    }

private:
    void bindTo(const std::string& name, std::size_t ending)
    {
        socket_ = Descriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, name.data(), name.size());
        address.sun_path[0] = name[0] == '@' ? '\0' : name[0];
        const auto size = offsetof(sockaddr_un, sun_path) + name.size() + ending;
        EXPECT_EQ(0, ::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address),
                            static_cast<socklen_t>(size)));
    }

    TemporaryFolder folder_;
    std::string path_;
    Descriptor socket_;
};

}  // namespace refhost

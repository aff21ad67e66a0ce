#pragma once
// Tested by tests/refhost/rtsp/connection/RtspServerAuth_test.cpp.

#include <string>
#include <string_view>
#include <utility>

#include "refhost/base/SocketAddress.h"

namespace refhost
{

/// The owner of a session, who alone may use it: the authenticated user from any address; without users, the
/// address it was made from. Knowing a session's id is not enough.
class SessionOwner
{
public:
    /// \param address  of the connection that made the session; also for the limits per address
    /// \param user     the authenticated user; empty without users
    SessionOwner(const SocketAddress::Key& address, std::string user = {})
        : address_(address), user_(std::move(user))
    {
    }

    const SocketAddress::Key& address() const
    {
        return address_;
    }

    const std::string& user() const
    {
        return user_;
    }

    /// Whether a request by `user` from `address` may use the session.
    bool admits(const SocketAddress::Key& address, std::string_view user) const
    {
        return user_.empty() ? user.empty() && address_ == address : user_ == user;
    }

private:
    SocketAddress::Key address_;
    std::string user_;
};

}  // namespace refhost

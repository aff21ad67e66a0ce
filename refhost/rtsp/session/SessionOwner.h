#pragma once
// Tested by tests/refhost/rtsp/connection/RtspServerAuth_test.cpp.

#include <string>
#include <string_view>
#include <utility>

#include "refhost/base/SocketAddress.h"

namespace refhost
{

/// Who made a session, and so who may use it: the user who authenticated, from wherever; without users, the
/// address that it was made from. Whoever merely learned a session's id may not.
class SessionOwner
{
public:
    /// \param address  of the connection that made the session; limits per address count it
    /// \param user     who authenticated there; empty without users
    SessionOwner(const SocketAddress::Key& address, std::string user = {})
        : address_(address), user_(std::move(user))
    {
    }

    const SocketAddress::Key& address() const
    {
        return address_;
    }

    /// Whether a request by `user` that came from `address` may use the session.
    bool admits(const SocketAddress::Key& address, std::string_view user) const
    {
        return user_.empty() ? user.empty() && address_ == address : user_ == user;
    }

private:
    SocketAddress::Key address_;
    std::string user_;
};

}  // namespace refhost

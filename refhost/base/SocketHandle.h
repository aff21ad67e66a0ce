#pragma once
// Tested by tests/refhost/net/ByteStreamContract_test.cpp.

#include <sys/socket.h>
#include <unistd.h>

#include <utility>

namespace refhost
{

/// Owns a socket's descriptor and closes it at its end.
class SocketHandle
{
public:
    /// \param descriptor  -1: none
    explicit SocketHandle(int descriptor) : descriptor_(descriptor) {}

    ~SocketHandle()
    {
        if (descriptor_ >= 0)
        {
            ::close(descriptor_);
        }
    }

    SocketHandle(SocketHandle&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

    SocketHandle& operator=(SocketHandle&& other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }

    int get() const
    {
        return descriptor_;
    }

    explicit operator bool() const
    {
        return descriptor_ >= 0;
    }

    int release()
    {
        return std::exchange(descriptor_, -1);
    }

    /// Asks for a buffer of so many bytes; the system may give less.
    /// \param option, forced  SO_SNDBUF and SO_SNDBUFFORCE, or those for receiving
    void setBuffer(int option, int forced, int bytes) const
    {
        // The forced form goes beyond the system's limit but needs a privilege; the plain one is cut
        // silently.
        if (setsockopt(descriptor_, SOL_SOCKET, forced, &bytes, sizeof(bytes)) != 0)
        {
            (void)setsockopt(descriptor_, SOL_SOCKET, option, &bytes, sizeof(bytes));
        }
    }

private:
    int descriptor_;
};

}  // namespace refhost

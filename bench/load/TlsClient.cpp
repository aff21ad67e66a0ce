#include "bench/load/TlsClient.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace rtspload
{
namespace
{

constexpr std::size_t largestRecord = 16384;

/// One for all connections, as a player's process has.
SSL_CTX* context()
{
    static SSL_CTX* const made = []
    {
        std::signal(SIGPIPE, SIG_IGN);
        SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
        SSL_CTX_set_read_ahead(context, 1);
        return context;
    }();
    return made;
}

}  // namespace

bool TlsClient::open(int socket, SSL_SESSION* session)
{
    ssl_.reset(SSL_new(context()));
    SSL_set_fd(ssl(), socket);
    if (session != nullptr)
    {
        SSL_set_session(ssl(), session);
    }
    const bool done = SSL_connect(ssl()) == 1;
    fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK);
    return done;
}

void TlsClient::close()
{
    ssl_.reset();
}

bool TlsClient::send(const std::string& text)
{
    return SSL_write(ssl(), text.data(), static_cast<int>(text.size())) == static_cast<int>(text.size());
}

ssize_t TlsClient::receive(char* bytes, std::size_t size)
{
    // What OpenSSL has read ahead makes no socket readable, so all of it is taken.
    std::size_t total = 0;
    while (size - total >= largestRecord)
    {
        const int count = SSL_read(ssl(), bytes + total, static_cast<int>(size - total));
        if (count <= 0)
        {
            const int error = SSL_get_error(ssl(), count);
            if (total == 0 && error == SSL_ERROR_WANT_READ)
            {
                errno = EAGAIN;
                return -1;
            }
            return error == SSL_ERROR_WANT_READ ? static_cast<ssize_t>(total) : 0;
        }
        total += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(total);
}

SSL* TlsClient::ssl() const
{
    return ssl_.get();
}

}  // namespace rtspload

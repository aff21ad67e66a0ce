#pragma once
// Tested by tests/e2e/test_reload.py.

#include <sys/un.h>

#include <chrono>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>

#include "refhost/base/Descriptor.h"
#include "refhost/config/Reloader.h"

namespace refhost
{

/// How `ovrtspd --reload` reaches the server that runs with the same configuration file: a local socket whose abstract
/// name is a digest of the file's path. Nothing is left behind by a crash, and no process id can be mistaken. Only the
/// server's own user and root are served, and only they are trusted as a server.
///
/// Threads: one at a time.
class ReloadSocket
{
public:
    /// Max time that asking may take from connect to outcome.
    static constexpr std::chrono::seconds maxWait{15};

    /// \param file         of the configuration
    /// \param[out] error   why not, in plain words, when null is returned
    static std::unique_ptr<ReloadSocket> open(const std::string& file, std::string& error);

    /// Readable while somebody asks.
    int descriptor() const
    {
        return socket_.get();
    }

    /// Serves one that asks: waits a moment for its request, calls `reload` for one that is permitted, and sends the
    /// outcome. Never waits longer than a fifth of a second for a client.
    void serve(const std::function<Reloader::Outcome()>& reload) const;

    /// Asks the server that runs with `file`, and prints the outcome.
    /// \param out  receives what changed
    /// \param err  receives problems and warnings, one line each
    /// \returns the program's exit code, see ExitCode
    static int ask(const std::string& file, std::ostream& out, std::ostream& err);

private:
    struct Address
    {
        explicit Address(const std::string& file);

        sockaddr_un name{};
        socklen_t size = 0;
    };

    explicit ReloadSocket(Descriptor socket) : socket_(std::move(socket)) {}

    Descriptor socket_;
};

}  // namespace refhost

#include "refhost/ReloadSocket.h"

#include <openssl/sha.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <ostream>
#include <string_view>
#include <utility>
#include <vector>

#include "refhost/CommandLine.h"
#include "refhost/base/Hex.h"
#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

constexpr std::string_view request = "reload";
constexpr std::size_t maxMessage = 32768;
constexpr std::chrono::milliseconds maxClientWait(200);

/// Parts of an outcome, each a line that starts with its letter.
constexpr char problemLine = 'P';
constexpr char warningLine = 'W';
constexpr char appliedLine = 'A';
constexpr char restartLine = 'R';

void limitWaits(int socket, std::chrono::milliseconds limit)
{
    timeval time{};
    time.tv_sec = static_cast<time_t>(limit.count() / 1000);
    time.tv_usec = static_cast<suseconds_t>(limit.count() % 1000 * 1000);
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
}

/// Whether the other end is this user or root.
bool isTrusted(int socket)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           (peer.uid == 0 || peer.uid == geteuid() || geteuid() == 0);
}

void append(std::string& out, char kind, const std::vector<std::string>& lines)
{
    for (const std::string& line : lines)
    {
        if (out.size() + line.size() + 2 < maxMessage)
        {
            out.append(1, kind).append(line).append("\n");
        }
    }
}

std::string textOf(const Reloader::Outcome& outcome)
{
    std::string text;
    append(text, problemLine, outcome.problems);
    append(text, restartLine, outcome.needRestart);
    append(text, warningLine, outcome.warnings);
    append(text, appliedLine, outcome.applied);
    return text.empty() ? "\n" : text;
}

void print(char kind, const std::string& line, std::ostream& out, std::ostream& err)
{
    switch (kind)
    {
        case problemLine:
            err << line << '\n';
            break;
        case warningLine:
            err << "warning: " << line << '\n';
            break;
        case restartLine:
            err << line << ": needs a restart of the server\n";
            break;
        case appliedLine:
            out << "changed: " << line << '\n';
            break;
        default:
            break;
    }
}

int printOutcome(const std::string& text, std::ostream& out, std::ostream& err)
{
    bool refused = false;
    for (std::size_t start = 0, end = 0; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
    {
        if (end > start)
        {
            refused = refused || text[start] == problemLine;
            print(text[start], text.substr(start + 1, end - start - 1), out, err);
        }
    }
    (refused ? err : out) << (refused ? "nothing changed\n" : "the configuration is in force\n");
    return refused ? exitConfig : exitDone;
}

int failed(std::ostream& err, const std::string& why)
{
    err << why << '\n';
    return exitFailed;
}

}  // namespace

ReloadSocket::Address::Address(const std::string& file)
{
    std::error_code unknown;
    // Not the file itself: where it is a link, another file may be put there meanwhile.
    const std::filesystem::path whole = std::filesystem::absolute(file, unknown);
    const std::string path =
        (std::filesystem::weakly_canonical(whole.parent_path(), unknown) / whole.filename()).string();
    std::array<unsigned char, SHA256_DIGEST_LENGTH> hash{};
    SHA256(reinterpret_cast<const unsigned char*>(path.data()), path.size(), hash.data());
    std::string text = "ovrtspd-";
    for (const unsigned char byte : hash)
    {
        appendHex8(text, byte);
    }
    // An abstract name starts with a null character.
    name.sun_family = AF_UNIX;
    std::copy(text.begin(), text.end(), name.sun_path + 1);
    size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
}

std::unique_ptr<ReloadSocket> ReloadSocket::open(const std::string& file, std::string& error)
{
    Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const Address address(file);
    const auto* const name = reinterpret_cast<const sockaddr*>(&address.name);
    constexpr int backlog = 8;
    if (!socket || ::bind(socket.get(), name, address.size) != 0 || ::listen(socket.get(), backlog) != 0)
    {
        error = errno == EADDRINUSE ? "another server runs with the same configuration file"
                                    : std::strerror(errno);
        return nullptr;
    }
    return std::unique_ptr<ReloadSocket>(new ReloadSocket(std::move(socket)));
}

void ReloadSocket::serve(const std::function<Reloader::Outcome()>& reload) const
{
    const Descriptor client(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!client || !isTrusted(client.get()))
    {
        return;
    }
    limitWaits(client.get(), maxClientWait);
    std::array<char, 16> received{};
    const ssize_t count = ::recv(client.get(), received.data(), received.size(), 0);
    if (count <= 0 || std::string_view(received.data(), static_cast<std::size_t>(count)) != request)
    {
        return;
    }
    const std::string text = textOf(reload());
    if (::send(client.get(), text.data(), text.size(), MSG_NOSIGNAL) < 0)
    {
        Log::debug("whoever asked for another configuration does not wait for the outcome");
    }
}

int ReloadSocket::ask(const std::string& file, std::ostream& out, std::ostream& err)
{
    const Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const Address address(file);
    const auto* const name = reinterpret_cast<const sockaddr*>(&address.name);
    limitWaits(socket.get(), maxWait);
    if (!socket || ::connect(socket.get(), name, address.size) != 0)
    {
        return failed(err, "no server of this machine runs with " + file);
    }
    if (!isTrusted(socket.get()))
    {
        return failed(
            err, "the server that runs with " + file + " is another user's: ask as that user, or as root");
    }
    if (::send(socket.get(), request.data(), request.size(), MSG_NOSIGNAL) < 0)
    {
        return failed(err, std::string("the server cannot be asked: ") + std::strerror(errno));
    }
    std::string text(maxMessage, '\0');
    const ssize_t count = ::recv(socket.get(), text.data(), text.size(), 0);
    if (count <= 0)
    {
        return failed(err, count == 0 ? "the server refused to answer, or ended"
                                      : "the server does not answer within " +
                                            std::to_string(maxWait.count()) + " seconds: see its log");
    }
    text.resize(static_cast<std::size_t>(count));
    return printOutcome(text, out, err);
}

}  // namespace refhost

#include "refhost/base/AuditLog.h"

#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "refhost/base/AuditLimiter.h"
#include "refhost/base/HostClock.h"
#include "refhost/base/LogFormat.h"
#include "refhost/base/ServerEvents.h"

namespace refhost
{
namespace
{

using Field = LogFormat::Field;

constexpr std::size_t maxName = 64;

// Never destroyed: threads may write until the end of the process.
AuditLimiter& limiter()
{
    static auto* const instance = new AuditLimiter(AuditLog::burst, AuditLog::refill, AuditLog::maxAddresses);
    return *instance;
}

// One count for each event that clients provoke.
constexpr std::array<std::string_view, 7> countedEvents{
    "connection-refused", "authentication-failed", "authentication-refused", "right-refused",
    "session-started",    "session-ended",         "talk-back-taken"};
std::array<std::atomic<std::uint64_t>, countedEvents.size()> eventCounts{};

bool admitted(std::string_view event, const SocketAddress::Key& address)
{
    const auto* const counted = std::find(countedEvents.begin(), countedEvents.end(), event);
    if (counted != countedEvents.end())
    {
        eventCounts.at(static_cast<std::size_t>(counted - countedEvents.begin()))
            .fetch_add(1, std::memory_order_relaxed);
    }
    return Log::enabled(Log::Level::info) && limiter().admit(event, address, AuditLimiter::Clock::now());
}

std::string textOf(const SocketAddress::Key& key)
{
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    std::memcpy(&address.sin6_addr, key.data(), key.size());
    return SocketAddress(reinterpret_cast<const sockaddr*>(&address)).text();
}

Field word(std::string_view name, std::string value)
{
    return {name, std::move(value), Field::Kind::word};
}

Field number(std::string_view name, std::uint64_t value)
{
    return {name, std::to_string(value), Field::Kind::number};
}

Field nameOfUser(std::string_view user)
{
    return {"user", std::string(user.substr(0, maxName))};
}

Field url(std::string_view text)
{
    return {"url", Log::safe(text)};
}

void publish(std::string_view event, const std::vector<Field>& fields)
{
    if (ServerEvents::instance().hasSubscribers())
    {
        ServerEvent made{event, HostClock::system().wallNow(), {}};
        for (const Field& field : fields)
        {
            if (field.kind == Field::Kind::number)
            {
                made.fields.emplace_back(field.name,
                                         std::int64_t{std::strtoll(field.value.c_str(), nullptr, 10)});
            }
            else
            {
                made.fields.emplace_back(field.name, field.value);
            }
        }
        ServerEvents::instance().publish(std::move(made));
    }
}

void write(std::string_view event, const std::vector<Field>& fields)
{
    publish(event, fields);
    LogFormat::write(Log::Level::info, event, fields);
}

/// Publishes every event of a kind, and writes those lines that are admitted.
template <class MakeFields>
void writeAdmitted(std::string_view event, const SocketAddress::Key& address, const MakeFields& makeFields)
{
    const bool line = admitted(event, address);
    const bool published = ServerEvents::instance().hasSubscribers();
    if (!line && !published)
    {
        return;
    }
    const std::vector<Field> fields = makeFields();
    publish(event, fields);
    if (line)
    {
        LogFormat::write(Log::Level::info, event, fields);
    }
}

}  // namespace

std::vector<std::pair<std::string_view, std::uint64_t>> AuditLog::counts()
{
    std::vector<std::pair<std::string_view, std::uint64_t>> all;
    for (std::size_t i = 0; i < countedEvents.size(); ++i)
    {
        all.emplace_back(countedEvents.at(i), eventCounts.at(i).load(std::memory_order_relaxed));
    }
    return all;
}

void AuditLog::connectionRefused(const SocketAddress& peer, std::string_view limit)
{
    if (admitted("connection-refused", peer.key()))
    {
        write("connection-refused", {word("address", peer.text()), word("limit", std::string(limit))});
    }
}

void AuditLog::authenticationFailed(const SocketAddress& peer, std::string_view user, std::string_view reason,
                                    std::string_view requestUrl)
{
    if (admitted("authentication-failed", peer.key()))
    {
        write("authentication-failed", {word("address", peer.text()), nameOfUser(user),
                                        word("reason", std::string(reason)), url(requestUrl)});
    }
}

void AuditLog::authenticationRefused(const SocketAddress& peer, std::string_view user,
                                     std::chrono::seconds seconds, std::string_view requestUrl)
{
    if (admitted("authentication-refused", peer.key()))
    {
        write("authentication-refused",
              {word("address", peer.text()), nameOfUser(user),
               number("seconds", static_cast<std::uint64_t>(std::max<std::int64_t>(seconds.count(), 0))),
               url(requestUrl)});
    }
}

void AuditLog::rightRefused(const SocketAddress& peer, std::string_view user, std::string_view right,
                            std::string_view requestUrl)
{
    if (admitted("right-refused", peer.key()))
    {
        write("right-refused", {word("address", peer.text()), nameOfUser(user),
                                word("right", std::string(right)), url(requestUrl)});
    }
}

void AuditLog::sessionStarted(const Session& session)
{
    writeAdmitted("session-started", session.address,
                  [&session]() -> std::vector<Field>
                  {
                      return {word("address", textOf(session.address)), nameOfUser(session.user),
                              url(session.url), word("transport", std::string(session.transport))};
                  });
}

void AuditLog::sessionEnded(const Session& session, Duration duration, const Sent& sent)
{
    writeAdmitted("session-ended", session.address,
                  [&]() -> std::vector<Field>
                  {
                      const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
                      return {
                          word("address", textOf(session.address)),
                          nameOfUser(session.user),
                          url(session.url),
                          word("transport", std::string(session.transport)),
                          number("milliseconds", static_cast<std::uint64_t>(std::max<std::int64_t>(ms, 0))),
                          number("bytes", sent.bytes),
                          number("lost", sent.lost)};
                  });
}

void AuditLog::talkBackTaken(const SocketAddress::Key& address, std::string_view user,
                             std::string_view requestUrl)
{
    writeAdmitted("talk-back-taken", address,
                  [&]() -> std::vector<Field> {
                      return {word("address", textOf(address)), nameOfUser(user), url(requestUrl)};
                  });
}

void AuditLog::talkBackEnded(const SocketAddress::Key& address, std::string_view user,
                             std::string_view requestUrl)
{
    if (ServerEvents::instance().hasSubscribers())
    {
        publish("talk-back-ended", {word("address", textOf(address)), nameOfUser(user), url(requestUrl)});
    }
}

void AuditLog::configurationChanged(std::string_view what)
{
    write("configuration-changed", {word("what", std::string(what))});
}

void AuditLog::reportSuppressed()
{
    for (const AuditLimiter::Suppressed& suppressed : limiter().take(AuditLimiter::Clock::now()))
    {
        write("suppressed", {word("of", std::string(suppressed.event)), number("lines", suppressed.lines)});
    }
}

}  // namespace refhost

#include "refhost/http/HttpGuard.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <utility>

#include "refhost/base/AuditLog.h"
#include "refhost/base/Decimal.h"
#include "refhost/base/IgnoreCase.h"
#include "refhost/config/CameraSet.h"
#include "refhost/http/SignInCookie.h"

namespace refhost
{
namespace
{

constexpr std::string_view pageHeader = "X-Requested-With";  // scripts of other sites cannot add it
constexpr int badRequest = 400;
constexpr int unauthorized = 401;
constexpr int forbidden = 403;
constexpr int unsupportedMediaType = 415;
constexpr int misdirected = 421;
constexpr int tooManyRequests = 429;
constexpr int unavailable = 503;

/// The host of "host", "host:port" or "[v6]:port", without the brackets.
std::string_view hostOf(std::string_view authority)
{
    if (!authority.empty() && authority.front() == '[')
    {
        const std::size_t end = authority.find(']');
        return end == std::string_view::npos ? std::string_view() : authority.substr(1, end - 1);
    }
    return authority.substr(0, authority.find(':'));
}

/// The names of a list with commas, in lower case.
std::vector<std::string> namesOf(std::string_view list)
{
    std::vector<std::string> names;
    while (!list.empty())
    {
        const std::size_t comma = std::min(list.find(','), list.size());
        const std::string_view entry = list.substr(0, comma);
        const std::size_t first = entry.find_first_not_of(' ');
        if (first != std::string_view::npos)
        {
            names.push_back(lowerCase(entry.substr(first, entry.find_last_not_of(' ') + 1 - first)));
        }
        list.remove_prefix(std::min(comma + 1, list.size()));
    }
    return names;
}

std::string machineName()
{
    constexpr std::size_t room = 256;
    std::array<char, room> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? lowerCase(std::string_view(name.data()))
                                                            : std::string();
}

bool changes(std::string_view method)
{
    return method != "GET" && method != "HEAD" && method != "OPTIONS";
}

std::size_t countOf(const HttpRequestHead& head, std::string_view name)
{
    return static_cast<std::size_t>(std::count_if(head.fields.begin(), head.fields.end(),
                                                  [name](const auto& field)
                                                  { return equalsIgnoringCase(field.first, name); }));
}

bool isJson(std::string_view contentType)
{
    const std::string_view type = contentType.substr(0, contentType.find(';'));
    const std::size_t last = type.find_last_not_of(' ');
    return last != std::string_view::npos && equalsIgnoringCase(type.substr(0, last + 1), "application/json");
}

HttpReply later(int status, std::string_view detail, Duration span)
{
    HttpReply reply = HttpReply::problem(status, detail);
    reply.with("Retry-After", std::to_string(std::chrono::ceil<std::chrono::seconds>(span).count()));
    return reply;
}

/// Whether a page of this server, or no page at all, sends the request.
bool isOwnPages(const HttpRequestHead& head)
{
    const std::string_view site = head.field("Sec-Fetch-Site");
    const std::string_view origin = head.field("Origin");
    const std::size_t scheme = origin.find("://");
    const bool sameOrigin =
        scheme != std::string_view::npos && equalsIgnoringCase(origin.substr(scheme + 3), head.field("Host"));
    return (!head.has("Origin") || sameOrigin) && (site.empty() || site == "same-origin" || site == "none");
}

}  // namespace

HttpGuard::HttpGuard(const ServerConfig& config, UserAccess& users)
    : names_(namesOf(config.http.names)), users_(users)
{
    anyName_ = std::find(names_.begin(), names_.end(), "*") != names_.end();
    names_.emplace_back("localhost");
    if (const std::string own = machineName(); !own.empty())
    {
        names_.push_back(own);
        names_.push_back(own + ".local");
    }
}

bool HttpGuard::isOwnName(std::string_view host) const
{
    const std::string name = lowerCase(hostOf(host));
    return !name.empty() && (anyName_ || SocketAddress::parse(name) ||
                             std::find(names_.begin(), names_.end(), name) != names_.end());
}

std::optional<HttpReply> HttpGuard::refuseOrigin(const HttpRequest& request) const
{
    const std::size_t hosts = countOf(request.head, "Host");
    const bool mayLack = request.head.version < 11;
    if (hosts > 1 || (hosts == 0 && !mayLack))
    {
        return HttpReply::problem(badRequest, "A request needs exactly one Host header.");
    }
    if (hosts == 1 && !isOwnName(request.head.field("Host")))
    {
        return HttpReply::problem(misdirected,
                                  "The Host header is no name of this server: add it to names of [http].");
    }
    return changes(request.head.method) ? refuseChange(request) : std::nullopt;
}

/// A browser adds to a page's request what the user of the browser logged in with, and who the page is of.
std::optional<HttpReply> HttpGuard::refuseChange(const HttpRequest& request) const
{
    const HttpRequestHead& head = request.head;
    if (!isOwnPages(head))
    {
        return HttpReply::problem(forbidden, "A page of another site must not change anything here.");
    }
    // A page may send a POST of other types anywhere without being asked first.
    if (head.method == "POST" && !isJson(head.field("Content-Type")))
    {
        return HttpReply::problem(unsupportedMediaType, "A POST needs the Content-Type application/json.");
    }
    if (!mayChange(*users_.rights.rules(), request.peer))
    {
        return HttpReply::problem(forbidden,
                                  "Without configured users only this machine itself may change something.");
    }
    return std::nullopt;
}

bool HttpGuard::mayChange(const AccessRules& rules, const SocketAddress& peer)
{
    return rules.enabled() || peer.isLoopback();
}

HttpGuard::Finding HttpGuard::checkUser(HttpRequest& request, ConnectionLogin& login,
                                        const HttpAccess& access) const
{
    using Result = ConnectionLogin::Result;
    constexpr std::chrono::milliseconds whileChecked(5);
    const ConnectionLogin::Request credentials{
        request.head.method, request.head.target, request.head.field("Authorization"),
        request.peer,        request.connection,  isPrivate(request),
        request.certificate};
    if (!credentials.authorization.empty() || login.isCertified(credentials))
    {
        const ConnectionLogin::Outcome outcome = login.attempt(credentials, false);
        switch (outcome.result)
        {
            case Result::granted:
                request.user = outcome.user;
                break;
            case Result::challenge:
            case Result::stale:
                return {challenge(request, outcome.result == Result::stale)};
            case Result::refused:
                return {
                    later(tooManyRequests, "Too many wrong passwords came from this address.", outcome.span)};
            case Result::busy:
                return {later(unavailable, "Too many passwords are being checked.", std::chrono::seconds(1))};
            case Result::delayed:
                return {std::nullopt, outcome.span};
            case Result::pending:
                return {std::nullopt, whileChecked};
        }
    }
    else if (auto refusal = checkCookie(request))
    {
        return {std::move(refusal)};
    }
    if (permits(request, access))
    {
        return {};
    }
    if (request.user.empty() && users_.rights.rules()->hasLogins())
    {
        return {challenge(request, false)};
    }
    AuditLog::rightRefused(request.peer, request.user, nameOf(access.rightFor(request.target)),
                           request.head.target);
    return {HttpReply::problem(forbidden, "This user lacks the right to do that.")};
}

bool HttpGuard::permits(const HttpRequest& request, const HttpAccess& access) const
{
    const auto rules = users_.rights.rules();
    switch (access.kind)
    {
        case HttpAccess::Kind::open:
            return true;
        case HttpAccess::Kind::shared:
            return !rules->enabled() || !request.user.empty() || rules->hasAnonymous();
        case HttpAccess::Kind::camera:
            return rules->allows(request.user, access.rightFor(request.target),
                                 parseDecimal<int>(request.part("camera"), CameraSet::maxId));
        case HttpAccess::Kind::server:
            break;
    }
    return rules->allows(request.user, access.right, std::nullopt);
}

/// Nobody else reads what does not leave this machine.
bool HttpGuard::isPrivate(const HttpRequest& request)
{
    return request.encrypted || request.peer.isLoopback();
}

bool HttpGuard::takesPasswords(const HttpRequest& request) const
{
    return users_.rights.rules()->hasLogins() && users_.takesBasic(isPrivate(request));
}

/// \returns the refusal; nothing when there is none, whether the cookie is good or not
std::optional<HttpReply> HttpGuard::checkCookie(HttpRequest& request) const
{
    const std::string token = SignInCookie::read(request.head, request.encrypted);
    if (token.empty() || !isOwnPages(request.head))
    {
        return std::nullopt;
    }
    std::string user = users_.signIns.userOf(token);
    if (user.empty())
    {
        return std::nullopt;
    }
    if (changes(request.head.method) && !request.head.has(pageHeader))
    {
        return HttpReply::problem(forbidden,
                                  "What changes something needs X-Requested-With beside the cookie.");
    }
    request.user = std::move(user);
    request.signIn = token;
    request.stillLoggedIn = [&signIns = users_.signIns, token, user = request.user]
    { return signIns.userOf(token) == user; };
    return std::nullopt;
}

HttpReply HttpGuard::challenge(const HttpRequest& request, bool stale) const
{
    HttpReply reply =
        HttpReply::problem(unauthorized, "Log in with the name and password of a configured user.");
    if (request.head.has(pageHeader) && takesPasswords(request))
    {
        // The page asks for them: a browser that knows the scheme would ask, too.
        reply.with("WWW-Authenticate", "Session realm=\"ovrtspd\"");
        return reply;
    }
    for (const std::string& line :
         users_.challenges(stale, {request.peer.key(), request.connection}, isPrivate(request)))
    {
        // Browsers and other clients of HTTP take the strongest that they know: one Digest of each kind is enough.
        const bool given = std::any_of(reply.fields.begin(), reply.fields.end(),
                                       [&line](const auto& field) { return field.second == line; });
        if (!given)
        {
            reply.with("WWW-Authenticate", line);
        }
    }
    return reply;
}

}  // namespace refhost

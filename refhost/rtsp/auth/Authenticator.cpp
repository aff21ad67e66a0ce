#include "refhost/rtsp/auth/Authenticator.h"

#include <glib.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "refhost/base/Hex.h"
#include "refhost/base/IgnoreCase.h"
#include "refhost/rtsp/auth/DigestAuth.h"
#include "refhost/rtsp/message/RtspText.h"
#include "refhost/rtsp/message/RtspUrl.h"

namespace refhost
{
namespace
{

using Algorithm = DigestAuth::Algorithm;

// Replaces the secret of an unknown user, so that unknown users take as long as wrong passwords.
constexpr std::string_view nobodysSecret = "0000000000000000000000000000000000000000000000000000000000000000";

std::string decodeBase64(std::string_view text)
{
    gsize size = 0;
    const std::string terminated(text);
    const std::unique_ptr<guchar, decltype(&g_free)> bytes(
        terminated.empty() ? nullptr : g_base64_decode(terminated.c_str(), &size), &g_free);
    return bytes ? std::string(reinterpret_cast<const char*>(bytes.get()), size) : std::string();
}

/// Clients use the request's URL, or the presentation's in requests for its tracks.
bool namesTheSame(std::string_view requestUri, std::string_view digestUri)
{
    if (requestUri == digestUri)
    {
        return true;
    }
    const auto request = RtspUrl::parse(requestUri);
    const auto digest = RtspUrl::parse(digestUri);
    return request && digest && request->server == digest->server &&
           request->presentation == digest->presentation &&
           (digest->track.empty() || digest->track == request->track);
}

/// The parts of an Authorization header.
struct Credentials
{
    std::string_view scheme;
    std::string_view rest;
};

Credentials split(std::string_view authorization)
{
    const std::size_t blank = authorization.find(' ');
    if (blank == std::string_view::npos)
    {
        return {};
    }
    return {authorization.substr(0, blank), RtspText::trim(authorization.substr(blank))};
}

Authenticator::Decision denied(Authenticator::Denial denial)
{
    Authenticator::Decision decision;
    decision.denial = denial;
    return decision;
}

Authenticator::Decision granted(std::string_view user)
{
    Authenticator::Decision decision;
    decision.verdict = Authenticator::Verdict::granted;
    decision.user = user;
    return decision;
}

}  // namespace

Authenticator::Authenticator(const std::vector<UserConfig>& users, std::string realm, const HostClock& clock,
                             bool digestWithoutQop)
    : realm_(std::move(realm)), digestWithoutQop_(digestWithoutQop), nonces_(clock)
{
    setUsers(users);
}

void Authenticator::setUsers(const std::vector<UserConfig>& users)
{
    auto next = std::make_shared<Users>();
    for (const UserConfig& user : users)
    {
        if (!user.isAnonymous())
        {
            (*next)[user.name] = {DigestAuth::secret(Algorithm::md5, user.name, realm_, user.password),
                                  DigestAuth::secret(Algorithm::sha256, user.name, realm_, user.password)};
        }
    }
    const MutexLock guard(mutex_);
    users_ = std::move(next);
}

std::shared_ptr<const Authenticator::Users> Authenticator::users() const
{
    const MutexLock guard(mutex_);
    return users_;
}

bool Authenticator::enabled() const
{
    return !users()->empty();
}

Authenticator::Decision Authenticator::check(std::string_view method, std::string_view uri,
                                             std::string_view authorization, const Client& client, bool basic)
{
    const std::shared_ptr<const Users> all = users();
    if (all->empty())
    {
        return granted({});
    }
    const auto [scheme, rest] = split(authorization);
    if (equalsIgnoringCase(scheme, "Basic"))
    {
        return basic ? checkBasic(*all, rest) : denied(Denial::scheme);
    }
    if (!equalsIgnoringCase(scheme, "Digest"))
    {
        return denied(Denial::scheme);
    }
    return checkDigest(*all, method, uri, rest, client);
}

std::string Authenticator::claimedUser(std::string_view authorization)
{
    const auto [scheme, rest] = split(authorization);
    if (equalsIgnoringCase(scheme, "Basic"))
    {
        const std::string pair = decodeBase64(rest);
        return pair.substr(0, std::min(pair.find(':'), pair.size()));
    }
    DigestAuth::Answer answer;
    DigestAuth::parse(equalsIgnoringCase(scheme, "Digest") ? rest : std::string_view(), answer);
    return std::string(answer.username);
}

std::string_view Authenticator::nameOf(Denial denial)
{
    switch (denial)
    {
        case Denial::malformed:
            return "malformed";
        case Denial::scheme:
            return "scheme";
        case Denial::realm:
            return "realm";
        case Denial::resource:
            return "resource";
        case Denial::user:
            return "user";
        case Denial::password:
            break;
    }
    return "password";
}

bool Authenticator::isGuess(Denial denial)
{
    return denial == Denial::user || denial == Denial::password;
}

Authenticator::Decision Authenticator::checkBasic(const Users& users, std::string_view credentials) const
{
    const std::string pair = decodeBase64(credentials);
    const std::size_t colon = pair.find(':');
    if (colon == std::string::npos)
    {
        return denied(Denial::malformed);
    }
    const std::string name = pair.substr(0, colon);
    const auto user = users.find(name);
    const std::string given =
        DigestAuth::secret(Algorithm::sha256, name, realm_, std::string_view(pair).substr(colon + 1));
    const std::string_view expected =
        user == users.end() ? nobodysSecret : std::string_view(user->second.sha256);
    const bool same = DigestAuth::equalInConstantTime(given, expected);
    if (user == users.end())
    {
        return denied(Denial::user);
    }
    return same ? granted(user->first) : denied(Denial::password);
}

Authenticator::Decision Authenticator::checkDigest(const Users& users, std::string_view method,
                                                   std::string_view uri, std::string_view parameters,
                                                   const Client& client)
{
    DigestAuth::Answer answer;
    if (!DigestAuth::parse(parameters, answer))
    {
        return denied(Denial::malformed);
    }
    if (answer.realm != realm_)
    {
        return denied(Denial::realm);
    }
    if (!namesTheSame(uri, answer.uri))
    {
        return denied(Denial::resource);
    }
    if (answer.qop.empty() && !digestWithoutQop_)
    {
        return denied(Denial::scheme);
    }
    const auto user = users.find(std::string(answer.username));
    std::string_view secret = nobodysSecret;
    if (user != users.end())
    {
        secret = answer.algorithm == Algorithm::md5 ? user->second.md5 : user->second.sha256;
    }
    const std::string expected = DigestAuth::expected(answer, secret, method);
    const bool same = DigestAuth::equalInConstantTime(answer.response, expected);
    if (user == users.end())
    {
        return denied(Denial::user);
    }
    if (!same)
    {
        return denied(Denial::password);
    }
    const std::uint64_t count = parseHex(answer.nonceCount).value_or(0);
    if (!answer.qop.empty() && count == 0)
    {
        return denied(Denial::malformed);
    }
    Decision decision = granted(user->first);
    if (!nonces_.use(answer.nonce, count, client))
    {
        decision = Decision();
        decision.verdict = Verdict::stale;
    }
    return decision;
}

void Authenticator::challenge(ResponseWriter& out, bool stale, const Client& client, bool basic) const
{
    const std::string nonce = nonces_.issue(client);
    for (const std::string_view algorithm : {"MD5", "SHA-256", "MD5"})
    {
        out.startHeader("WWW-Authenticate");
        std::string& text = out.text();
        text.append("Digest realm=\"").append(realm_).append("\", nonce=\"").append(nonce).append("\"");
        // Right after the nonce, where simple clients look for it.
        text.append(stale ? ", stale=true" : "");
        text.append(", algorithm=").append(algorithm).append(", qop=\"auth\"");
        out.endHeader();
    }
    if (!basic)
    {
        return;
    }
    out.startHeader("WWW-Authenticate");
    out.text().append("Basic realm=\"").append(realm_).append("\"");
    out.endHeader();
}

}  // namespace refhost

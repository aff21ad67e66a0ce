#include "refhost/access/Authenticator.h"

#include <glib.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "refhost/access/DigestAuth.h"
#include "refhost/base/ChangeSignal.h"
#include "refhost/base/HeaderText.h"
#include "refhost/base/Hex.h"
#include "refhost/base/IgnoreCase.h"
#include "refhost/config/PasswordHash.h"

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
    return {authorization.substr(0, blank), HeaderText::trim(authorization.substr(blank))};
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

Authenticator::Decision undecided(Authenticator::Verdict verdict)
{
    Authenticator::Decision decision;
    decision.verdict = verdict;
    return decision;
}

}  // namespace

Authenticator::Authenticator(const std::vector<UserConfig>& users, std::string realm, const HostClock& clock,
                             bool digestWithoutQop)
    : realm_(std::move(realm)),
      digestWithoutQop_(digestWithoutQop),
      nonces_(clock),
      verifier_(clock, [] { ChangeSignal::instance().announce(); })
{
    setUsers(users);
}

void Authenticator::setUsers(const std::vector<UserConfig>& users)
{
    auto next = std::make_shared<Users>();
    for (const UserConfig& user : users)
    {
        if (user.isAnonymous())
        {
            continue;
        }
        Secret secret = secretOf(user, realm_);
        next->slow = secret.slow.empty() ? next->slow : secret.slow;
        next->basicOnly = next->basicOnly || (!secret.slow.empty() && secret.md5.empty());
        next->all[user.name] = std::move(secret);
    }
    const MutexLock guard(mutex_);
    users_ = std::move(next);
}

Authenticator::Secret Authenticator::secretOf(const UserConfig& user, const std::string& realm)
{
    if (!user.password.empty())
    {
        return {DigestAuth::secret(Algorithm::md5, user.name, realm, user.password),
                DigestAuth::secret(Algorithm::sha256, user.name, realm, user.password), ""};
    }
    PasswordHash hash = PasswordHash::parse(user.passwordHash).value_or(PasswordHash());
    return {std::move(hash.md5), std::move(hash.sha256), std::move(hash.crypt)};
}

std::shared_ptr<const Authenticator::Users> Authenticator::users() const
{
    const MutexLock guard(mutex_);
    return users_;
}

bool Authenticator::enabled() const
{
    return !users()->all.empty();
}

Authenticator::Decision Authenticator::check(const Request& request)
{
    const std::shared_ptr<const Users> all = users();
    if (all->all.empty())
    {
        return granted({});
    }
    const auto [scheme, rest] = split(request.authorization);
    if (equalsIgnoringCase(scheme, "Basic"))
    {
        return request.basic ? checkBasic(*all, rest, request.client) : denied(Denial::scheme);
    }
    if (!equalsIgnoringCase(scheme, "Digest"))
    {
        return denied(Denial::scheme);
    }
    return checkDigest(*all, rest, request);
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

Authenticator::Decision Authenticator::checkBasic(const Users& users, std::string_view credentials,
                                                  const Client& client)
{
    const std::string pair = decodeBase64(credentials);
    const std::size_t colon = pair.find(':');
    if (colon == std::string::npos)
    {
        return denied(Denial::malformed);
    }
    const std::string name = pair.substr(0, colon);
    const std::string password = pair.substr(colon + 1);
    const auto user = users.all.find(name);
    const bool known = user != users.all.end();
    const std::string given = DigestAuth::secret(Algorithm::sha256, name, realm_, password);
    const std::string_view expected =
        known && !user->second.sha256.empty() ? std::string_view(user->second.sha256) : nobodysSecret;
    bool same = DigestAuth::equalInConstantTime(given, expected) && known;
    if (!users.slow.empty())
    {
        const bool slow = known && !user->second.slow.empty();
        PasswordVerifier::Attempt attempt{name, password, slow ? user->second.slow : users.slow};
        attempt.known = slow ? std::nullopt : std::optional<bool>(same);
        switch (verifier_.check(attempt, client.address))
        {
            case PasswordVerifier::Result::right:
                same = known;
                break;
            case PasswordVerifier::Result::wrong:
                same = false;
                break;
            case PasswordVerifier::Result::pending:
                return undecided(Verdict::pending);
            case PasswordVerifier::Result::busy:
                return undecided(Verdict::busy);
        }
    }
    if (!known)
    {
        return denied(Denial::user);
    }
    return same ? granted(name) : denied(Denial::password);
}

Authenticator::Decision Authenticator::checkDigest(const Users& users, std::string_view parameters,
                                                   const Request& request)
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
    if (request.uri != answer.uri && (request.same == nullptr || !request.same(request.uri, answer.uri)))
    {
        return denied(Denial::resource);
    }
    if (answer.qop.empty() && !digestWithoutQop_)
    {
        return denied(Denial::scheme);
    }
    const auto user = users.all.find(std::string(answer.username));
    std::string_view secret = nobodysSecret;
    if (user != users.all.end())
    {
        secret = answer.algorithm == Algorithm::md5 ? user->second.md5 : user->second.sha256;
    }
    const bool answerable = !secret.empty();
    secret = answerable ? secret : nobodysSecret;
    const std::string expected = DigestAuth::expected(answer, secret, request.method);
    const bool same = DigestAuth::equalInConstantTime(answer.response, expected) && answerable;
    if (user == users.all.end())
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
    return nonces_.use(answer.nonce, count, request.client) ? granted(user->first)
                                                            : undecided(Verdict::stale);
}

std::vector<std::string> Authenticator::challenges(bool stale, const Client& client, bool basic) const
{
    std::vector<std::string> all;
    if (!basic || !users()->basicOnly)
    {
        // Whether it is stale comes right after the nonce, where simple clients look for it.
        const std::string start = "Digest realm=\"" + realm_ + "\", nonce=\"" + nonces_.issue(client) + "\"" +
                                  (stale ? ", stale=true" : "") + ", algorithm=";
        for (const char* const algorithm : {"MD5", "SHA-256", "MD5"})
        {
            all.push_back(start + algorithm + ", qop=\"auth\"");
        }
    }
    if (basic)
    {
        all.push_back("Basic realm=\"" + realm_ + "\"");
    }
    return all;
}

}  // namespace refhost

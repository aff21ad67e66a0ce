#include "refhost/access/SignIns.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <utility>

#include "refhost/base/Hex.h"
#include "refhost/base/RandomBytes.h"

namespace refhost
{
namespace
{

std::string makeToken()
{
    std::array<std::uint64_t, 4> numbers{};
    fillRandom(numbers.data(), sizeof numbers);
    std::string token;
    for (const std::uint64_t number : numbers)
    {
        appendHex64(token, number);
    }
    return token;
}

std::string hashOf(std::string_view text)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    std::size_t size = 0;
    EVP_Q_digest(nullptr, "SHA256", nullptr, text.data(), text.size(), digest.data(), &size);
    return {digest.begin(), digest.begin() + static_cast<std::ptrdiff_t>(size)};
}

}  // namespace

SignIns::SignIns(const std::vector<UserConfig>& users, const HostClock& clock)
    : clock_(clock), salt_(makeToken()), secrets_(secretsOf(users))
{
}

SignIns::Secrets SignIns::secretsOf(const std::vector<UserConfig>& users) const
{
    Secrets secrets;
    for (const UserConfig& user : users)
    {
        if (!user.isAnonymous())
        {
            secrets[user.name] = hashOf(salt_ + '\0' + user.password + '\0' + user.passwordHash);
        }
    }
    return secrets;
}

bool SignIns::isOver(const SignIn& signIn, MonotonicTime now)
{
    return now - signIn.used >= maxIdle || now - signIn.opened >= maxAge;
}

std::optional<std::string> SignIns::open(const std::string& user)
{
    std::string token = makeToken();
    const MonotonicTime now = clock_.now();
    const MutexLock guard(mutex_);
    if (secrets_.count(user) == 0)
    {
        return std::nullopt;
    }
    makeRoom(user, now);
    all_[hashOf(token)] = {user, now, now};
    return token;
}

void SignIns::makeRoom(const std::string& user, MonotonicTime now)
{
    std::size_t own = 0;
    const auto none = all_.end();
    auto oldest = none;
    auto oldestOwn = none;
    for (auto each = all_.begin(); each != all_.end();)
    {
        if (isOver(each->second, now))
        {
            each = all_.erase(each);
            continue;
        }
        const auto isOlder = [each, none](const auto& other)
        { return other == none || each->second.used < other->second.used; };
        oldest = isOlder(oldest) ? each : oldest;
        if (each->second.user == user)
        {
            ++own;
            oldestOwn = isOlder(oldestOwn) ? each : oldestOwn;
        }
        ++each;
    }
    if (own >= maxPerUser)
    {
        all_.erase(oldestOwn);
    }
    else if (all_.size() >= max)
    {
        all_.erase(oldest);
    }
}

std::string SignIns::userOf(std::string_view token)
{
    const std::string key = hashOf(token);
    const MonotonicTime now = clock_.now();
    const MutexLock guard(mutex_);
    const auto found = all_.find(key);
    if (found == all_.end())
    {
        return "";
    }
    if (isOver(found->second, now))
    {
        all_.erase(found);
        return "";
    }
    found->second.used = now;
    return found->second.user;
}

void SignIns::close(std::string_view token)
{
    const std::string key = hashOf(token);
    const MutexLock guard(mutex_);
    all_.erase(key);
}

void SignIns::setUsers(const std::vector<UserConfig>& users)
{
    Secrets secrets = secretsOf(users);
    const MutexLock guard(mutex_);
    for (auto each = all_.begin(); each != all_.end();)
    {
        const auto after = secrets.find(each->second.user);
        const bool same = after != secrets.end() && after->second == secrets_.at(each->second.user);
        each = same ? std::next(each) : all_.erase(each);
    }
    secrets_ = std::move(secrets);
}

std::size_t SignIns::count() const
{
    const MutexLock guard(mutex_);
    return all_.size();
}

}  // namespace refhost

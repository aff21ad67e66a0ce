#pragma once
// Tested by tests/refhost/access/SignIns_test.cpp.

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "refhost/base/HostClock.h"
#include "refhost/base/Mutex.h"
#include "refhost/config/Config.h"

namespace refhost
{

/// The users who signed in on the web page, by the tokens that their browsers send as cookies.
///
/// A token is 256 random bits, of which only a SHA-256 hash is kept. It is good until it was not used for `maxIdle`, at most
/// for `maxAge`, until its user signs out, and until the configuration has another password for the user or no such user.
///
/// Bounds: `max` in all and `maxPerUser`; a further one replaces the one that was used longest ago.
/// Threads: any; one lock of its own.
class SignIns
{
public:
    static constexpr std::size_t max = 1024;
    static constexpr std::size_t maxPerUser = 16;
    static constexpr std::chrono::hours maxIdle{12};
    static constexpr std::chrono::hours maxAge{24 * 7};

    /// \param clock  outlives this
    SignIns(const std::vector<UserConfig>& users, const HostClock& clock);

    /// Signs a user in, whose password was right.
    /// \returns the token, hexadecimal; nothing when there is no such user any more
    std::optional<std::string> open(const std::string& user);

    /// Whose token it is, which counts as a use of it; empty for one that is not good.
    std::string userOf(std::string_view token);

    /// Signs out. Does nothing for a token that is not good.
    void close(std::string_view token);

    /// These may be signed in from now on; ends what is of others, and of those with another password.
    void setUsers(const std::vector<UserConfig>& users);

    std::size_t count() const;

private:
    struct SignIn
    {
        std::string user;
        MonotonicTime opened;
        MonotonicTime used;
    };
    using Secrets = std::unordered_map<std::string, std::string>;

    Secrets secretsOf(const std::vector<UserConfig>& users) const;
    static bool isOver(const SignIn& signIn, MonotonicTime now);
    void makeRoom(const std::string& user, MonotonicTime now) OV_REQUIRES(mutex_);

    const HostClock& clock_;
    const std::string salt_;
    mutable Mutex mutex_;
    Secrets secrets_ OV_GUARDED_BY(mutex_);  // hashes of the users' passwords, by name
    std::unordered_map<std::string, SignIn> all_ OV_GUARDED_BY(mutex_);  // by the tokens' hashes
};

}  // namespace refhost

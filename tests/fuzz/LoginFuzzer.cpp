// What clients log in with, and what the configuration keeps of passwords: values of the Authorization header, and
// password-hash. The first byte chooses between them.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/access/Authenticator.h"
#include "refhost/config/PasswordHash.h"

namespace
{

using refhost::Authenticator;
using refhost::PasswordHash;
using Verdict = Authenticator::Verdict;

void require(bool condition, const char* what)
{
    if (!condition)
    {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

std::vector<refhost::UserConfig> users()
{
    std::vector<refhost::UserConfig> all{{"admin", "secret"}, {"hashed", ""}, {"certified", ""}};
    PasswordHash hash;
    hash.binding = PasswordHash::bindingOf("hashed", "here");
    hash.md5 = std::string(32, '0');
    hash.sha256 = std::string(64, '0');
    all[1].passwordHash = hash.text();
    return all;
}

void login(std::string_view authorization)
{
    static Authenticator authenticator(users(), "here", refhost::HostClock::system());
    const Authenticator::Decision decision = authenticator.check({"DESCRIBE", "rtsp://h/a", authorization});
    require(decision.verdict != Verdict::pending && decision.verdict != Verdict::busy,
            "there is nothing to wait for");
    require((decision.verdict == Verdict::granted) == !decision.user.empty(), "who is granted is a user");
    const std::string claimed = Authenticator::claimedUser(authorization);
    require(decision.user.empty() || decision.user == claimed, "the brake counts another user");
    require(decision.user != "certified" && decision.user != "hashed", "a password that nobody has");
}

void readHash(std::string_view text)
{
    const auto hash = PasswordHash::parse(text);
    if (hash)
    {
        const std::string written = hash->text();
        require(written.size() <= PasswordHash::maxSize, "a hash grows");
        const auto again = PasswordHash::parse(written);
        require(again && again->text() == written, "a hash changes when it is written again");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
    {
        return 0;
    }
    const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
    data[0] % 2 == 0 ? login(text) : readHash(text);
    return 0;
}

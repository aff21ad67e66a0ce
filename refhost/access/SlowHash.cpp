#include "refhost/access/SlowHash.h"

#include <crypt.h>

#include <array>
#include <memory>
#include <stdexcept>

namespace refhost
{
namespace
{

/// \returns an empty text on failure
std::string hashOf(const std::string& password, const std::string& setting)
{
    const auto memory = std::make_unique<crypt_data>();  // 32 KiB
    const char* const made = crypt_r(password.c_str(), setting.c_str(), memory.get());
    // A failure is null or a text that starts with '*'.
    return made == nullptr || made[0] == '*' ? std::string() : std::string(made);
}

bool equal(const std::string& a, const std::string& b)
{
    unsigned difference = a.size() == b.size() ? 0 : 1;
    for (std::size_t i = 0; i < a.size() && i < b.size(); ++i)
    {
        difference |=
            static_cast<unsigned char>(a[i]) ^ static_cast<unsigned>(static_cast<unsigned char>(b[i]));
    }
    return difference == 0;
}

}  // namespace

std::string SlowHash::make(const std::string& password)
{
    std::array<char, CRYPT_GENSALT_OUTPUT_SIZE> setting{};
    std::string hash;
    if (crypt_gensalt_rn("$y$", 0, nullptr, 0, setting.data(), static_cast<int>(setting.size())) != nullptr)
    {
        hash = hashOf(password, setting.data());
    }
    if (hash.empty())
    {
        throw std::runtime_error("libcrypt made no yescrypt hash");
    }
    return hash;
}

bool SlowHash::verify(const std::string& password, const std::string& hash)
{
    const std::string made = hashOf(password, hash);
    // libcrypt reads a password up to its first NUL.
    return !made.empty() && equal(made, hash) && password.find('\0') == std::string::npos;
}

}  // namespace refhost

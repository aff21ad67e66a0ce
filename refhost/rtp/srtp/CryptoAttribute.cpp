#include "refhost/rtp/srtp/CryptoAttribute.h"

#include <openssl/crypto.h>

#include <vector>

#include "refhost/base/Base64.h"
#include "refhost/base/Decimal.h"

namespace refhost
{
namespace
{

constexpr std::string_view method = "inline:";
constexpr std::uint64_t largestTag = 999'999'999;  // nine digits (RFC 4568, section 9.1)

std::string_view cutWord(std::string_view& rest)
{
    const std::size_t begin = rest.find_first_not_of(' ');
    if (begin == std::string_view::npos)
    {
        rest = {};
        return {};
    }
    rest.remove_prefix(begin);
    const std::string_view word = rest.substr(0, rest.find(' '));
    rest.remove_prefix(word.size());
    return word;
}

/// Whether packets look the same with and without this session parameter.
bool isHarmless(std::string_view parameter)
{
    return parameter.substr(0, 4) == "WSH=" || parameter.substr(0, 1) == "-";
}

}  // namespace

void CryptoAttribute::append(std::string& out, const SrtpKey& key)
{
    out.append("1 ").append(infoOf(key.suite()).name).append(" ").append(method);
    std::string text = base64Of(key.data(), key.size());
    out += text;
    OPENSSL_cleanse(text.data(), text.size());
}

std::optional<SrtpKey> CryptoAttribute::parse(std::string_view value)
{
    if (!parseDecimal<std::uint64_t>(cutWord(value), largestTag))
    {
        return std::nullopt;
    }
    const auto suite = srtpSuiteNamed(cutWord(value));
    std::string_view key = cutWord(value);
    if (!suite || key.substr(0, method.size()) != method)
    {
        return std::nullopt;
    }
    for (std::string_view parameter = cutWord(value); !parameter.empty(); parameter = cutWord(value))
    {
        if (!isHarmless(parameter))
        {
            return std::nullopt;
        }
    }
    key.remove_prefix(method.size());
    key = key.substr(0, key.find(';'));
    // After the key: its lifetime, and the identifier that packets would carry.
    const std::size_t bar = key.find('|');
    if (bar != std::string_view::npos && key.find(':', bar) != std::string_view::npos)
    {
        return std::nullopt;
    }
    auto bytes = bytesOfBase64(key.substr(0, bar));
    if (!bytes)
    {
        return std::nullopt;
    }
    auto found = SrtpKey::of(*suite, bytes->data(), bytes->size());
    OPENSSL_cleanse(bytes->data(), bytes->size());
    return found;
}

}  // namespace refhost

#include "refhost/config/PasswordHash.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <memory>

#include "refhost/base/Hex.h"

namespace refhost
{
namespace
{

constexpr std::size_t bindingDigits = 16;
constexpr std::size_t md5Digits = 32;
constexpr std::size_t sha256Digits = 64;

bool isDigits(std::string_view text, std::size_t count)
{
    return text.size() == count && isHex(text) &&
           std::none_of(text.begin(), text.end(), [](char c) { return c >= 'A' && c <= 'F'; });
}

bool isOfCrypt(std::string_view text)
{
    return !text.empty() &&
           text.find_first_not_of("./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz") ==
               std::string_view::npos;
}

// $y$<parameters>$<salt>$<hash of 43 characters>
bool isYescrypt(std::string_view text)
{
    constexpr std::string_view prefix = "$y$";
    constexpr std::size_t hashSize = 43;
    if (text.substr(0, prefix.size()) != prefix)
    {
        return false;
    }
    text.remove_prefix(prefix.size());
    for (int field = 0; field < 2; ++field)
    {
        const std::size_t end = text.find('$');
        if (end == std::string_view::npos || !isOfCrypt(text.substr(0, end)))
        {
            return false;
        }
        text.remove_prefix(end + 1);
    }
    return text.size() == hashSize && isOfCrypt(text);
}

}  // namespace

std::optional<PasswordHash> PasswordHash::parse(std::string_view text)
{
    struct Field
    {
        std::string_view name;
        std::string& value;
    };
    PasswordHash hash;
    const std::array<Field, 4> fields{
        {{"for:", hash.binding}, {"md5:", hash.md5}, {"sha-256:", hash.sha256}, {"crypt:", hash.crypt}}};
    if (text.size() > maxSize)
    {
        return std::nullopt;
    }
    while (!text.empty())
    {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
        const auto field = std::find_if(fields.begin(), fields.end(),
                                        [word](const Field& known)
                                        { return word.substr(0, known.name.size()) == known.name; });
        if (word.empty())
        {
            continue;
        }
        if (field == fields.end() || !field->value.empty() || word.size() == field->name.size())
        {
            return std::nullopt;
        }
        field->value = word.substr(field->name.size());
    }
    const bool noDigest = hash.binding.empty() && hash.md5.empty() && hash.sha256.empty();
    const bool digest = isDigits(hash.binding, bindingDigits) && isDigits(hash.md5, md5Digits) &&
                        isDigits(hash.sha256, sha256Digits);
    const bool good = (noDigest || digest) && (hash.crypt.empty() ? digest : isYescrypt(hash.crypt));
    return good ? std::optional(hash) : std::nullopt;
}

std::string PasswordHash::text() const
{
    std::string out;
    if (servesDigest())
    {
        out = "for:" + binding + " md5:" + md5 + " sha-256:" + sha256;
    }
    return crypt.empty() ? out : out + (out.empty() ? "" : " ") + "crypt:" + crypt;
}

std::string PasswordHash::bindingOf(std::string_view user, std::string_view realm)
{
    const std::string text = std::string(user) + ":" + std::string(realm);
    const std::unique_ptr<char, decltype(&g_free)> hex(
        g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(text.data()),
                                    text.size()),
        &g_free);
    return std::string(hex.get(), bindingDigits);
}

}  // namespace refhost

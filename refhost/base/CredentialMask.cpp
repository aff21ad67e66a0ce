#include "refhost/base/CredentialMask.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <memory>
#include <vector>

#include "refhost/base/Hex.h"
#include "refhost/base/IgnoreCase.h"
#include "refhost/base/Mutex.h"

namespace refhost
{
namespace
{

constexpr std::array<std::string_view, 10> secretNames{"password", "passwd", "pass",  "pwd",     "user-pw",
                                                       "proxy-pw", "secret", "token", "api_key", "apikey"};
constexpr std::size_t maxSecretName = 8;

bool isSchemeCharacter(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '+' || c == '-' || c == '.';
}

bool isWordCharacter(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-';
}

// End of the URL whose authority starts at `position`: the quote or bracket that closes the one before its
// scheme, otherwise the next blank.
std::size_t urlEnd(std::string_view text, std::size_t position)
{
    std::size_t scheme = position - 3;
    while (scheme > 0 && isSchemeCharacter(text[scheme - 1]))
    {
        --scheme;
    }
    std::size_t end = std::string_view::npos;
    if (scheme > 0)
    {
        const char before = text[scheme - 1];
        if (before == '"' || before == '\'')
        {
            end = text.find(before, position);
        }
        else if (before == '<')
        {
            end = text.find('>', position);
        }
    }
    if (end == std::string_view::npos)
    {
        end = text.find_first_of(" \t\r\n", position);
    }
    return std::min(end, text.size());
}

// "[::1]" or "[::1]:554"
bool isBracketedHost(std::string_view authority)
{
    const std::size_t close = authority.find(']');
    return !authority.empty() && authority.front() == '[' && close != std::string_view::npos &&
           authority.substr(1, close - 1).find_first_not_of("0123456789abcdefABCDEF:.") ==
               std::string_view::npos &&
           authority.find('@') == std::string_view::npos;
}

// Length of the user information at the start of `url`, the text after "://"; 0 when there is none. Passwords
// with an unescaped '@', '/', '?' or '#' are found too: in doubt everything up to the last '@' counts,
// because a masked host name does less harm than a logged password.
std::size_t userInfoLength(std::string_view url)
{
    const std::size_t at = url.rfind('@');
    const std::string_view authority = url.substr(0, url.find_first_of("/?#"));
    if (at == std::string_view::npos || isBracketedHost(authority))
    {
        return 0;
    }
    const bool certain = authority.find('@') != std::string_view::npos;
    return certain || url.substr(0, at).find(':') != std::string_view::npos ? at : 0;
}

// Length of the secret whose value starts at `position`; 0 when none does.
std::size_t secretLength(std::string_view text, std::size_t position)
{
    const auto skipBack = [text](std::size_t end, std::string_view skipped)
    { return end > 0 && skipped.find(text[end - 1]) != std::string_view::npos ? end - 1 : end; };
    std::size_t end = skipBack(skipBack(position, "\"'"), " ");
    if (end == 0 || text[end - 1] != '=')
    {
        return 0;
    }
    end = skipBack(end - 1, " ");
    std::size_t start = end;
    while (start > 0 && end - start <= maxSecretName && isWordCharacter(text[start - 1]))
    {
        --start;
    }
    const std::string_view name = text.substr(start, end - start);
    const bool secret =
        std::any_of(secretNames.begin(), secretNames.end(),
                    [name](std::string_view known) { return equalsIgnoringCase(name, known); });
    if (!secret)
    {
        return 0;
    }
    const char quote = text[position - 1];
    const std::string_view stops = quote == '"' ? "\"" : quote == '\'' ? "'" : " \t\r\n&\"'<>,;!";
    return std::min(text.find_first_of(stops, position), text.size()) - position;
}

// The texts given to CredentialMask::hide().
class HiddenTexts
{
public:
    static HiddenTexts& instance()
    {
        // Never destroyed: threads may log until the end of the process.
        static auto* const texts = new HiddenTexts;
        return *texts;
    }

    void add(std::string_view text)
    {
        const MutexLock guard(mutex_);
        if (text.empty() || texts_->size() >= CredentialMask::maxHidden ||
            std::find(texts_->begin(), texts_->end(), text) != texts_->end())
        {
            return;
        }
        auto more = std::make_shared<std::vector<std::string>>(*texts_);
        more->emplace_back(text);
        texts_ = std::move(more);
    }

    std::shared_ptr<const std::vector<std::string>> all() const
    {
        const MutexLock guard(mutex_);
        return texts_;
    }

private:
    mutable Mutex mutex_;
    std::shared_ptr<const std::vector<std::string>> texts_ OV_GUARDED_BY(mutex_) =
        std::make_shared<std::vector<std::string>>();
};

// Length of the first of `texts` that `rest` starts with; 0 when there is none.
std::size_t lengthOfAny(const std::vector<std::string>& texts, std::string_view rest)
{
    const auto found =
        std::find_if(texts.begin(), texts.end(),
                     [rest](const std::string& text) { return rest.substr(0, text.size()) == text; });
    return found == texts.end() ? 0 : found->size();
}

bool startsAuthorization(std::string_view rest)
{
    constexpr std::string_view name = "authorization:";
    return rest.size() >= name.size() && equalsIgnoringCase(rest.substr(0, name.size()), name);
}

}  // namespace

std::string CredentialMask::cut(std::string_view text, std::size_t maxBytes)
{
    constexpr std::string_view blanks = " \t\r\n";
    if (text.size() <= maxBytes)
    {
        return std::string(text);
    }
    const std::string_view kept = text.substr(0, maxBytes);
    const std::size_t blank = kept.find_last_of(blanks);
    const std::size_t scheme = kept.find("://", blank == std::string_view::npos ? 0 : blank);
    const std::string_view beyond = text.substr(maxBytes);
    const std::string_view sameWord = beyond.substr(0, beyond.find_first_of(blanks));
    if (scheme != std::string_view::npos && sameWord.find('@') != std::string_view::npos)
    {
        return std::string(kept.substr(0, scheme + 3)) + "***";
    }
    return std::string(kept);
}

std::string CredentialMask::mask(std::string_view text)
{
    constexpr std::string_view stars = "***";
    std::string out;
    out.reserve(text.size());
    const auto hiddenTexts = HiddenTexts::instance().all();
    for (std::size_t i = 0; i < text.size();)
    {
        std::size_t hidden = lengthOfAny(*hiddenTexts, text.substr(i));
        if (hidden == 0 && i >= 3 && text.substr(i - 3, 3) == "://")
        {
            hidden = userInfoLength(text.substr(i, urlEnd(text, i) - i));
        }
        if (hidden == 0 && i > 0)
        {
            hidden = secretLength(text, i);
        }
        if (hidden > 0)
        {
            out += stars;
            i += hidden;
            continue;
        }
        if (startsAuthorization(text.substr(i)))
        {
            const std::size_t colon = text.find(':', i);
            const std::size_t end = std::min(text.find_first_of("\r\n", colon), text.size());
            out += text.substr(i, colon + 1 - i);
            out += ' ';
            out += stars;
            i = end;
            continue;
        }
        out += text[i++];
    }
    return out;
}

std::string_view CredentialMask::userInfo(std::string_view url)
{
    const std::size_t mark = url.find("://");
    const bool isUrl = mark != std::string_view::npos && mark > 0 &&
                       std::all_of(url.begin(), url.begin() + mark, isSchemeCharacter);
    if (!isUrl)
    {
        return {};
    }
    const std::string_view rest = url.substr(mark + 3);
    return rest.substr(0, userInfoLength(rest));
}

std::string CredentialMask::maskUrl(std::string_view url)
{
    const std::string_view hidden = userInfo(url);
    if (hidden.empty())
    {
        return mask(url);
    }
    const std::size_t start = hidden.data() - url.data();
    return std::string(url.substr(0, start)) + "***" + mask(url.substr(start + hidden.size()));
}

std::string CredentialMask::escapedUserInfo(std::string_view url)
{
    const std::string_view info = userInfo(url);
    if (info.empty())
    {
        return std::string(url);
    }
    const auto start = static_cast<std::size_t>(info.data() - url.data());
    const std::size_t colon = info.find(':');
    std::string out(url.substr(0, start));
    for (std::size_t i = 0; i < info.size(); ++i)
    {
        const char c = info[i];
        const bool escaped = c == '%' && i + 2 < info.size() && isHex(info.substr(i + 1, 2));
        if (std::isalnum(static_cast<unsigned char>(c)) != 0 || escaped || i == colon ||
            std::string_view("-._~!$&'()*+,;=").find(c) != std::string_view::npos)
        {
            out += c;
            continue;
        }
        out += '%';
        appendHex8(out, static_cast<std::uint8_t>(c));
    }
    return out.append(url.substr(start + info.size()));
}

void CredentialMask::hide(std::string_view secret)
{
    HiddenTexts::instance().add(secret);
}

}  // namespace refhost

#include "refhost/capture/CameraLogin.h"

#include <fmt/format.h>
#include <glib.h>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

using GText = std::unique_ptr<char, decltype(&g_free)>;

std::string hash(GChecksumType type, const std::string& text)
{
    return GText(g_compute_checksum_for_string(type, text.c_str(), static_cast<gssize>(text.size())), &g_free)
        .get();
}

/// Cuts off a value, which may be quoted. A quote in it stays escaped, as it is hashed and sent again.
std::string takeValue(std::string_view& text)
{
    if (text.empty() || text.front() != '"')
    {
        const std::size_t end = std::min(text.find_first_of(", \t"), text.size());
        std::string value(text.substr(0, end));
        text.remove_prefix(end);
        return value;
    }
    std::size_t end = 1;
    while (end < text.size() && text[end] != '"')
    {
        end += text[end] == '\\' ? 2 : 1;
    }
    end = std::min(end, text.size());
    std::string value(text.substr(1, end - 1));
    text.remove_prefix(std::min(end + 1, text.size()));
    return value;
}

/// Reads one demand, a scheme and name=value pairs with commas between them; another one may follow (RFC 7235,
/// section 4.1).
/// \param[out] scheme, parameters  names in lower case
void takeDemand(std::string_view& text, std::string& scheme, std::map<std::string, std::string>& parameters)
{
    constexpr std::string_view gap = " \t,";
    scheme.clear();
    parameters.clear();
    for (;;)
    {
        text.remove_prefix(std::min(text.find_first_not_of(gap), text.size()));
        const std::size_t end = std::min(text.find_first_of(" \t,="), text.size());
        const std::size_t behind = std::min(text.find_first_not_of(" \t", end), text.size());
        const std::string name = lowerCase(text.substr(0, end));
        const bool isPair = behind < text.size() && text[behind] == '=';
        if (text.empty() || (!isPair && !scheme.empty()))
        {
            return;  // the next demand, if any
        }
        if (isPair)
        {
            text.remove_prefix(behind + 1);
            text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
            parameters.emplace(name, takeValue(text));
        }
        else
        {
            scheme = name;
            text.remove_prefix(end);
        }
    }
}

/// As it may stand between quotes.
std::string quoted(const std::string& text)
{
    std::string result;
    for (const char c : text)
    {
        result += c == '"' || c == '\\' ? "\\" : "";
        result += c;
    }
    return result;
}

bool offersAuth(const std::string& qop)
{
    return fmt::format(",{},", lowerCase(qop)).find(",auth,") != std::string::npos ||
           lowerCase(qop).find("auth,") == 0 || lowerCase(qop).find(" auth") != std::string::npos;
}

}  // namespace

CameraLogin::CameraLogin(std::string user, std::string password)
    : user_(std::move(user)), password_(std::move(password))
{
}

bool CameraLogin::challenge(const CameraMessage& answer)
{
    scheme_ = Scheme::none;
    stale_ = false;
    for (const auto& [name, value] : answer.headers)
    {
        std::string_view demands = name == "www-authenticate" ? value : std::string_view();
        while (!demands.empty())
        {
            std::string scheme;
            Parameters parameters;
            takeDemand(demands, scheme, parameters);
            consider(scheme, parameters);
        }
    }
    scheme_ = user_.empty() ? Scheme::none : scheme_;
    return scheme_ != Scheme::none;
}

std::string CameraLogin::authorization(std::string_view method, std::string_view uri)
{
    if (scheme_ == Scheme::none)
    {
        return {};
    }
    if (scheme_ == Scheme::basic)
    {
        const std::string both = user_ + ":" + password_;
        return "Basic " +
               std::string(
                   GText(g_base64_encode(reinterpret_cast<const guchar*>(both.data()), both.size()), &g_free)
                       .get());
    }
    const bool sha256 = scheme_ == Scheme::digestSha256;
    const GChecksumType type = sha256 ? G_CHECKSUM_SHA256 : G_CHECKSUM_MD5;
    const std::string secret = hash(type, fmt::format("{}:{}:{}", user_, realm_, password_));
    const std::string request = hash(type, fmt::format("{}:{}", method, uri));
    std::string text = fmt::format(R"(Digest username="{}", realm="{}", nonce="{}", uri="{}", )",
                                   quoted(user_), realm_, nonce_, uri);
    if (qop_)
    {
        const std::string number = fmt::format("{:08x}", ++count_);
        const std::string own = fmt::format("{:08x}{:08x}", g_random_int(), g_random_int());
        text +=
            fmt::format(R"(response="{}", qop=auth, nc={}, cnonce="{}")",
                        hash(type, fmt::format("{}:{}:{}:{}:auth:{}", secret, nonce_, number, own, request)),
                        number, own);
    }
    else
    {
        text += fmt::format(R"(response="{}")", hash(type, fmt::format("{}:{}:{}", secret, nonce_, request)));
    }
    text += algorithm_.empty() ? "" : ", algorithm=" + algorithm_;
    return opaque_.empty() ? text : text + fmt::format(R"(, opaque="{}")", opaque_);
}

void CameraLogin::consider(const std::string& name, Parameters& parameters)
{
    Scheme scheme = Scheme::none;
    if (name == "basic")
    {
        scheme = Scheme::basic;
    }
    else if (name == "digest" && parameters.count("nonce") != 0)
    {
        const std::string algorithm = lowerCase(parameters["algorithm"]);
        scheme = algorithm.empty() || algorithm == "md5" ? Scheme::digestMd5
                 : algorithm == "sha-256"                ? Scheme::digestSha256
                                                         : Scheme::none;
        const std::string& qop = parameters["qop"];
        if (!qop.empty() && !offersAuth(qop))
        {
            scheme = Scheme::none;
        }
    }
    if (scheme <= scheme_)
    {
        return;
    }
    scheme_ = scheme;
    realm_ = parameters["realm"];
    nonce_ = parameters["nonce"];
    opaque_ = parameters["opaque"];
    algorithm_ = parameters["algorithm"];
    qop_ = !parameters["qop"].empty();
    stale_ = lowerCase(parameters["stale"]) == "true";
    count_ = 0;
}

}  // namespace refhost

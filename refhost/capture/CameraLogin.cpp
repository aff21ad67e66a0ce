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

/// Reads name=value pairs with commas between them; values may be quoted. Names in lower case.
std::map<std::string, std::string> parametersOf(std::string_view text)
{
    std::map<std::string, std::string> parameters;
    while (!text.empty())
    {
        const std::size_t start = text.find_first_not_of(" \t,");
        const std::size_t equals = text.find('=');
        if (start == std::string_view::npos || equals == std::string_view::npos || equals < start)
        {
            break;
        }
        const std::string name = lowerCase(text.substr(start, equals - start));
        text.remove_prefix(equals + 1);
        std::size_t end = 0;
        if (!text.empty() && text.front() == '"')
        {
            text.remove_prefix(1);
            end = std::min(text.find('"'), text.size());
        }
        else
        {
            end = std::min(text.find_first_of(", \t"), text.size());
        }
        parameters.emplace(name, text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parameters;
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
    for (const auto& [name, value] : answer.headers)
    {
        if (name == "www-authenticate")
        {
            consider(value);
        }
    }
    return scheme_ != Scheme::none && !user_.empty();
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
    std::string text = fmt::format(R"(Digest username="{}", realm="{}", nonce="{}", uri="{}", )", user_,
                                   realm_, nonce_, uri);
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
    text += sha256 ? ", algorithm=SHA-256" : "";
    return opaque_.empty() ? text : text + fmt::format(R"(, opaque="{}")", opaque_);
}

void CameraLogin::consider(std::string_view demand)
{
    const std::size_t space = std::min(demand.find(' '), demand.size());
    const std::string name = lowerCase(demand.substr(0, space));
    std::map<std::string, std::string> parameters = parametersOf(demand.substr(space));
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
    qop_ = !parameters["qop"].empty();
    count_ = 0;
}

}  // namespace refhost

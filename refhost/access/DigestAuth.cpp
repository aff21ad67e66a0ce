#include "refhost/access/DigestAuth.h"

#include <glib.h>

#include <initializer_list>
#include <memory>

#include "refhost/base/HeaderText.h"
#include "refhost/base/Hex.h"
#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

std::string joined(std::initializer_list<std::string_view> parts)
{
    std::string text;
    for (const std::string_view part : parts)
    {
        text.append(part).append(":");
    }
    text.pop_back();
    return text;
}

bool readAlgorithm(std::string_view value, DigestAuth::Algorithm& out)
{
    if (equalsIgnoringCase(value, "MD5"))
    {
        out = DigestAuth::Algorithm::md5;
        return true;
    }
    out = DigestAuth::Algorithm::sha256;
    return equalsIgnoringCase(value, "SHA-256");
}

}  // namespace

bool DigestAuth::parse(std::string_view parameters, Answer& out)
{
    out = Answer();
    bool supported = true;
    while (!parameters.empty())
    {
        const std::string_view parameter = HeaderText::cut(parameters, ',');
        const std::size_t equals = parameter.find('=');
        if (equals == std::string_view::npos)
        {
            continue;
        }
        const std::string_view name = HeaderText::trim(parameter.substr(0, equals));
        const std::string_view value = HeaderText::unquote(HeaderText::trim(parameter.substr(equals + 1)));
        struct Field
        {
            std::string_view name;
            std::string_view* target;
        };
        const Field fields[] = {{"username", &out.username}, {"realm", &out.realm},
                                {"nonce", &out.nonce},       {"uri", &out.uri},
                                {"qop", &out.qop},           {"response", &out.response},
                                {"nc", &out.nonceCount},     {"cnonce", &out.clientNonce}};
        for (const Field& field : fields)
        {
            if (equalsIgnoringCase(name, field.name))
            {
                *field.target = value;
            }
        }
        if (equalsIgnoringCase(name, "algorithm"))
        {
            supported = readAlgorithm(value, out.algorithm);
        }
    }
    const bool counted = equalsIgnoringCase(out.qop, "auth") && out.nonceCount.size() == 8 &&
                         isHex(out.nonceCount) && !out.clientNonce.empty();
    return supported && !out.username.empty() && !out.nonce.empty() && !out.uri.empty() &&
           !out.response.empty() && (out.qop.empty() || counted);
}

std::string DigestAuth::secret(Algorithm algorithm, std::string_view user, std::string_view realm,
                               std::string_view password)
{
    return hash(algorithm, joined({user, realm, password}));
}

std::string DigestAuth::expected(const Answer& answer, std::string_view secret, std::string_view method)
{
    const std::string requestHash = hash(answer.algorithm, joined({method, answer.uri}));
    if (answer.qop.empty())
    {
        return hash(answer.algorithm, joined({secret, answer.nonce, requestHash}));
    }
    return hash(answer.algorithm, joined({secret, answer.nonce, answer.nonceCount, answer.clientNonce,
                                          answer.qop, requestHash}));
}

std::string DigestAuth::hash(Algorithm algorithm, std::string_view text)
{
    const std::unique_ptr<char, decltype(&g_free)> hex(
        g_compute_checksum_for_data(algorithm == Algorithm::md5 ? G_CHECKSUM_MD5 : G_CHECKSUM_SHA256,
                                    reinterpret_cast<const guchar*>(text.data()), text.size()),
        &g_free);
    return hex.get();
}

bool DigestAuth::equalInConstantTime(std::string_view a, std::string_view b)
{
    // volatile: keeps the compiler from leaving the loop early.
    volatile unsigned char difference = a.size() == b.size() ? 0 : 1;
    for (std::size_t i = 0; i < b.size(); ++i)
    {
        const char c = a.empty() ? '\0' : a[i % a.size()];
        difference = static_cast<unsigned char>(difference | (c ^ b[i]));
    }
    return difference == 0;
}

}  // namespace refhost

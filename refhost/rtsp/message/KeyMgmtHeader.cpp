#include "refhost/rtsp/message/KeyMgmtHeader.h"

#include <openssl/crypto.h>

#include "refhost/base/Base64.h"
#include "refhost/base/HeaderText.h"
#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

constexpr std::string_view protocol = "mikey";

std::optional<MikeyMessage> parseData(std::string_view text)
{
    // Four characters for three bytes, and their padding.
    if (text.size() > MikeyMessage::maxSize / 3 * 4 + 4)
    {
        return std::nullopt;
    }
    auto bytes = bytesOfBase64(text);
    if (!bytes)
    {
        return std::nullopt;
    }
    auto message = MikeyMessage::parse(bytes->data(), bytes->size());
    OPENSSL_cleanse(bytes->data(), bytes->size());
    return message;
}

void appendData(std::string& out, const std::vector<std::uint8_t>& message)
{
    std::string text = base64Of(message.data(), message.size());
    out += text;
    OPENSSL_cleanse(text.data(), text.size());
}

}  // namespace

std::optional<MikeyMessage> KeyMgmtHeader::parse(std::string_view value)
{
    while (!value.empty())
    {
        std::string_view entry = HeaderText::cut(value, ',');
        bool mikey = false;
        std::optional<std::string_view> data;
        while (!entry.empty())
        {
            const std::string_view parameter = HeaderText::cut(entry, ';');
            const std::size_t equals = parameter.find('=');
            if (equals == std::string_view::npos)
            {
                continue;
            }
            const std::string_view name = HeaderText::trim(parameter.substr(0, equals));
            const std::string_view text = HeaderText::unquote(HeaderText::trim(parameter.substr(equals + 1)));
            if (equalsIgnoringCase(name, "prot"))
            {
                mikey = equalsIgnoringCase(text, protocol);
            }
            else if (equalsIgnoringCase(name, "data"))
            {
                data = text;
            }
        }
        if (mikey && data)
        {
            return parseData(*data);
        }
    }
    return std::nullopt;
}

void KeyMgmtHeader::append(std::string& out, std::string_view uri, const std::vector<std::uint8_t>& message)
{
    out.append("prot=").append(protocol).append(";uri=\"").append(uri).append("\";data=\"");
    appendData(out, message);
    out += '"';
}

void KeyMgmtHeader::appendAttribute(std::string& out, const std::vector<std::uint8_t>& message)
{
    out.append(protocol).append(" ");
    appendData(out, message);
}

std::optional<MikeyMessage> KeyMgmtHeader::parseAttribute(std::string_view value)
{
    const std::string_view name = HeaderText::cut(value, ' ');
    return equalsIgnoringCase(name, protocol) ? parseData(HeaderText::trim(value)) : std::nullopt;
}

}  // namespace refhost

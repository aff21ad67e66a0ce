#include "refhost/base/JsonText.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include "refhost/base/Hex.h"

namespace refhost
{
namespace
{

/// The size of the UTF-8 character that `text` starts with; 0 when it starts with none (RFC 3629: no
/// overlong forms, no surrogates, nothing beyond U+10FFFF).
std::size_t characterAt(std::string_view text)
{
    struct Form
    {
        unsigned char first, last;              // of the first byte
        unsigned char secondFirst, secondLast;  // of the second one
        std::size_t size;
    };
    constexpr std::array<Form, 8> forms{{{0xc2, 0xdf, 0x80, 0xbf, 2},
                                         {0xe0, 0xe0, 0xa0, 0xbf, 3},
                                         {0xe1, 0xec, 0x80, 0xbf, 3},
                                         {0xed, 0xed, 0x80, 0x9f, 3},
                                         {0xee, 0xef, 0x80, 0xbf, 3},
                                         {0xf0, 0xf0, 0x90, 0xbf, 4},
                                         {0xf1, 0xf3, 0x80, 0xbf, 4},
                                         {0xf4, 0xf4, 0x80, 0x8f, 4}}};
    const auto byte = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    if (byte(0) < 0x80)
    {
        return 1;
    }
    for (const Form& form : forms)
    {
        if (byte(0) < form.first || byte(0) > form.last)
        {
            continue;
        }
        if (text.size() < form.size || byte(1) < form.secondFirst || byte(1) > form.secondLast)
        {
            return 0;
        }
        for (std::size_t i = 2; i < form.size; ++i)
        {
            if ((byte(i) & 0xc0U) != 0x80)
            {
                return 0;
            }
        }
        return form.size;
    }
    return 0;
}

void appendAscii(std::string& out, char c)
{
    const auto byte = static_cast<std::uint8_t>(c);
    if (c == '"' || c == '\\')
    {
        out += '\\';
        out += c;
    }
    else if (byte < 0x20 || byte == 0x7f)
    {
        out += "\\u00";
        appendHex8(out, byte);
    }
    else
    {
        out += c;
    }
}

}  // namespace

void JsonText::append(std::string& out, std::string_view text)
{
    out += '"';
    while (!text.empty())
    {
        const std::size_t size = characterAt(text);
        if (size > 1)
        {
            out.append(text.substr(0, size));
        }
        else if (size == 1)
        {
            appendAscii(out, text.front());
        }
        else
        {
            out += "\\\\x";
            appendHex8(out, static_cast<std::uint8_t>(text.front()));
        }
        text.remove_prefix(size == 0 ? 1 : size);
    }
    out += '"';
}

}  // namespace refhost

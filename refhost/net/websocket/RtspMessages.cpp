#include "refhost/net/websocket/RtspMessages.h"

#include <cstdint>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/Decimal.h"
#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

constexpr std::size_t frameHeaderSize = 4;
constexpr std::string_view headEnd = "\r\n\r\n";
constexpr std::string_view lengthName = "Content-Length:";

/// The value of the header in `head`; 0 when it has none.
std::size_t bodySize(std::string_view head)
{
    for (std::size_t line = 0; line < head.size();)
    {
        std::string_view text = head.substr(line, head.find('\r', line) - line);
        if (equalsIgnoringCase(text.substr(0, lengthName.size()), lengthName))
        {
            text.remove_prefix(lengthName.size());
            text.remove_prefix(text.find_first_not_of(' ') == std::string_view::npos
                                   ? text.size()
                                   : text.find_first_not_of(' '));
            return leadingDecimal<std::uint32_t>(text).value_or(0);
        }
        const std::size_t next = head.find('\n', line);
        line = next == std::string_view::npos ? head.size() : next + 1;
    }
    return 0;
}

}  // namespace

std::size_t RtspMessages::firstSize(std::string_view bytes)
{
    std::size_t size = bytes.size();
    if (bytes.front() == '$')
    {
        size = bytes.size() < frameHeaderSize
                   ? bytes.size()
                   : frameHeaderSize + readBig16(reinterpret_cast<const std::uint8_t*>(bytes.data()) + 2);
    }
    else if (const std::size_t end = bytes.find(headEnd); end != std::string_view::npos)
    {
        size = end + headEnd.size();
        size += bodySize(bytes.substr(0, size));
    }
    return size < bytes.size() ? size : bytes.size();
}

}  // namespace refhost

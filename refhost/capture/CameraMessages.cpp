#include "refhost/capture/CameraMessages.h"

#include <algorithm>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/Decimal.h"
#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

constexpr std::size_t framingSize = 4;
constexpr std::string_view protocol = "RTSP/1.";

std::string_view trimmed(std::string_view text)
{
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (!text.empty() && isSpace(text.front()))
    {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(text.back()))
    {
        text.remove_suffix(1);
    }
    return text;
}

/// Cuts the first line off, whether it ends with LF or with CRLF.
std::string_view takeLine(std::string_view& text)
{
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return trimmed(line);
}

}  // namespace

std::string_view CameraMessage::header(std::string_view name) const
{
    const auto found = std::find_if(headers.begin(), headers.end(),
                                    [name](const auto& header) { return header.first == name; });
    return found == headers.end() ? std::string_view() : std::string_view(found->second);
}

void CameraMessages::append(const std::uint8_t* data, std::size_t size)
{
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(at_));
    at_ = 0;
    bytes_.insert(bytes_.end(), data, data + size);
}

CameraMessages::Next CameraMessages::next()
{
    // Some cameras send line ends between messages.
    while (at_ < bytes_.size() && (bytes_[at_] == '\r' || bytes_[at_] == '\n'))
    {
        ++at_;
        scanned_ = 0;
    }
    const std::size_t left = bytes_.size() - at_;
    if (left == 0)
    {
        return Next::incomplete;
    }
    const std::uint8_t* const data = bytes_.data() + at_;
    if (*data != '$')
    {
        return takeMessage();
    }
    if (left < framingSize)
    {
        return Next::incomplete;
    }
    packetSize_ = readBig16(data + 2);
    if (left < framingSize + packetSize_)
    {
        return Next::incomplete;
    }
    channel_ = data[1];
    packet_ = data + framingSize;
    at_ += framingSize + packetSize_;
    return Next::packet;
}

CameraMessages::Next CameraMessages::takeMessage()
{
    const std::string_view text(reinterpret_cast<const char*>(bytes_.data()) + at_, bytes_.size() - at_);
    if (std::isalpha(static_cast<unsigned char>(text.front())) == 0)
    {
        return Next::broken;
    }
    // An empty line ends the head: LF LF or LF CR LF.
    std::size_t end = std::string_view::npos;
    std::size_t headSize = 0;
    for (std::size_t line = text.find('\n', scanned_); line != std::string_view::npos;
         line = text.find('\n', line + 1))
    {
        const std::size_t after = line + 1;
        if (after < text.size() && text[after] == '\n')
        {
            end = line;
            headSize = after + 1;
            break;
        }
        if (after + 1 < text.size() && text[after] == '\r' && text[after + 1] == '\n')
        {
            end = line;
            headSize = after + 2;
            break;
        }
    }
    if ((end == std::string_view::npos ? text.size() : end) > maxHeaderBytes)
    {
        return Next::broken;
    }
    if (end == std::string_view::npos)
    {
        scanned_ = text.size() < 2 ? 0 : text.size() - 2;
        return Next::incomplete;
    }
    if (!readHead(text.substr(0, end), message_))
    {
        return Next::broken;
    }
    const std::string_view length = message_.header("content-length");
    const auto bodySize = parseDecimal<std::size_t>(length.empty() ? "0" : length, 0, maxBodyBytes);
    if (!bodySize)
    {
        return Next::broken;
    }
    const std::size_t body = *bodySize;
    if (text.size() - headSize < body)
    {
        scanned_ = end;
        return Next::incomplete;
    }
    message_.body = text.substr(headSize, body);
    at_ += headSize + body;
    scanned_ = 0;
    return Next::message;
}

bool CameraMessages::readHead(std::string_view head, CameraMessage& out)
{
    out = CameraMessage();
    const std::string_view first = takeLine(head);
    out.startLine = first;
    if (first.substr(0, protocol.size()) == protocol)
    {
        const std::size_t space = first.find(' ');
        const std::string_view rest = space == std::string_view::npos ? "" : trimmed(first.substr(space));
        const auto status = parseDecimal<int>(rest.substr(0, rest.find(' ')), 100, 999);
        if (!status)
        {
            return false;
        }
        out.status = *status;
    }
    else if (first.find(protocol) == std::string_view::npos)
    {
        return false;
    }
    while (!head.empty())
    {
        const std::string_view line = takeLine(head);
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos)
        {
            continue;  // some cameras fold or pad their headers; what was meant cannot be known
        }
        if (out.headers.size() == maxHeaders)
        {
            return false;
        }
        out.headers.emplace_back(lowerCase(trimmed(line.substr(0, colon))), trimmed(line.substr(colon + 1)));
    }
    return true;
}

}  // namespace refhost

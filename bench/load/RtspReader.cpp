#include "bench/load/RtspReader.h"

#include <strings.h>

#include <charconv>

namespace rtspload
{
namespace
{

constexpr std::size_t maximumMessage = 1 << 20;

std::string_view trim(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
    {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
    {
        text.remove_suffix(1);
    }
    return text;
}

std::size_t toNumber(std::string_view text)
{
    std::size_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

}  // namespace

std::string_view RtspReply::header(std::string_view name) const
{
    std::size_t line = head.find('\n');
    while (line != std::string_view::npos)
    {
        const std::size_t start = line + 1;
        line = head.find('\n', start);
        const std::string_view text =
            head.substr(start, line == std::string_view::npos ? line : line - start);
        if (text.size() > name.size() && text[name.size()] == ':' &&
            strncasecmp(text.data(), name.data(), name.size()) == 0)
        {
            return trim(text.substr(name.size() + 1));
        }
    }
    return {};
}

bool RtspReader::feed(const char* data, std::size_t size, RtspReaderSink& sink)
{
    if (rest_.empty())
    {
        const std::ptrdiff_t used = consume(data, size, sink);
        if (used < 0)
        {
            return false;
        }
        rest_.assign(data + used, data + size);
        return true;
    }
    rest_.insert(rest_.end(), data, data + size);
    const std::ptrdiff_t used = consume(rest_.data(), rest_.size(), sink);
    if (used < 0)
    {
        return false;
    }
    rest_.erase(rest_.begin(), rest_.begin() + used);
    return true;
}

void RtspReader::reset()
{
    rest_.clear();
}

std::ptrdiff_t RtspReader::consume(const char* data, std::size_t size, RtspReaderSink& sink)
{
    std::size_t at = 0;
    while (at < size)
    {
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(data + at);
        const std::size_t left = size - at;
        if (bytes[0] == '$')
        {
            const std::size_t length = left < 4 ? left : (bytes[2] << 8 | bytes[3]);
            if (left < 4 || left < 4 + length)
            {
                break;
            }
            sink.onInterleaved(bytes[1], bytes + 4, length);
            at += 4 + length;
            continue;
        }
        const std::string_view text(data + at, left);
        const std::size_t headEnd = text.find("\r\n\r\n");
        if (headEnd == std::string_view::npos)
        {
            if (left > maximumMessage)
            {
                return -1;
            }
            break;
        }
        RtspReply reply;
        reply.head = text.substr(0, headEnd);
        if (reply.head.compare(0, 9, "RTSP/1.0 ") != 0)
        {
            return -1;
        }
        reply.status = static_cast<int>(toNumber(reply.head.substr(9, 3)));
        const std::size_t bodySize = toNumber(reply.header("Content-Length"));
        if (bodySize > maximumMessage)
        {
            return -1;
        }
        if (left < headEnd + 4 + bodySize)
        {
            break;
        }
        reply.body = text.substr(headEnd + 4, bodySize);
        sink.onReply(reply);
        at += headEnd + 4 + bodySize;
    }
    return static_cast<std::ptrdiff_t>(at);
}

}  // namespace rtspload

#include "bench/origin/RequestReader.h"

#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace rtsporigin
{
namespace
{

constexpr std::size_t interleavedHeader = 4;

std::size_t interleavedSize(std::string_view bytes)
{
    const auto high = static_cast<std::uint8_t>(bytes[2]);
    const auto low = static_cast<std::uint8_t>(bytes[3]);
    return interleavedHeader + high * std::size_t{256} + low;
}

}  // namespace

std::string_view Request::header(std::string_view name) const
{
    std::string_view rest = head;
    while (true)
    {
        const std::size_t line = rest.find("\r\n");
        if (line == std::string_view::npos)
        {
            return {};
        }
        rest.remove_prefix(line + 2);
        const bool same = rest.size() > name.size() && rest[name.size()] == ':' &&
                          strncasecmp(rest.data(), name.data(), name.size()) == 0;
        if (!same)
        {
            continue;
        }
        std::string_view value = rest.substr(name.size() + 1, rest.find("\r\n") - name.size() - 1);
        value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
        return value.substr(0, value.find_last_not_of(" \t") + 1);
    }
}

bool RequestReader::feed(const char* data, std::size_t size, std::vector<Request>& requests)
{
    rest_.append(data, size);
    std::size_t used = 0;
    while (used < rest_.size())
    {
        const std::size_t count = consume(std::string_view(rest_).substr(used), requests);
        if (count == std::string::npos)
        {
            return false;
        }
        if (count == 0)
        {
            break;
        }
        used += count;
    }
    rest_.erase(0, used);
    return rest_.size() <= 2 * maxBytes;
}

std::size_t RequestReader::consume(std::string_view bytes, std::vector<Request>& requests) const
{
    if (bytes[0] == '$')
    {
        const bool complete = bytes.size() >= interleavedHeader && bytes.size() >= interleavedSize(bytes);
        return complete ? interleavedSize(bytes) : 0;
    }
    const std::size_t end = bytes.find("\r\n\r\n");
    if (end == std::string_view::npos)
    {
        return bytes.size() > maxBytes ? std::string::npos : 0;
    }
    Request request;
    request.head = std::string(bytes.substr(0, end + 2));
    const std::size_t blank = request.head.find(' ');
    const std::size_t second = blank == std::string::npos ? blank : request.head.find(' ', blank + 1);
    if (second == std::string::npos || second > request.head.find("\r\n"))
    {
        return std::string::npos;
    }
    request.method = request.head.substr(0, blank);
    request.url = request.head.substr(blank + 1, second - blank - 1);
    const std::size_t body = std::strtoul(std::string(request.header("Content-Length")).c_str(), nullptr, 10);
    if (body > maxBytes)
    {
        return std::string::npos;
    }
    const std::size_t size = end + 4 + body;
    if (bytes.size() < size)
    {
        return 0;
    }
    requests.push_back(std::move(request));
    return size;
}

}  // namespace rtsporigin

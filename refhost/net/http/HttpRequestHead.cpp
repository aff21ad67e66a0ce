#include "refhost/net/http/HttpRequestHead.h"

#define BOOST_BEAST_USE_STD_STRING_VIEW
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <limits>

#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

namespace http = boost::beast::http;

std::string_view trim(std::string_view text)
{
    const std::size_t start = text.find_first_not_of(" \t");
    const std::size_t end = text.find_last_not_of(" \t");
    return start == std::string_view::npos ? std::string_view() : text.substr(start, end - start + 1);
}

}  // namespace

std::optional<HttpRequestHead> HttpRequestHead::parse(std::string_view head)
{
    http::request_parser<http::empty_body> parser;
    parser.skip(true);  // the body is the caller's
    parser.header_limit(std::numeric_limits<std::uint32_t>::max());
    parser.body_limit(boost::none);
    boost::beast::error_code error;
    const std::size_t used = parser.put(boost::asio::const_buffer(head.data(), head.size()), error);
    if (error || used != head.size() || !parser.is_header_done())
    {
        return std::nullopt;
    }
    const auto& message = parser.get();
    HttpRequestHead made;
    made.method = std::string(message.method_string());
    made.target = std::string(message.target());
    made.version = static_cast<int>(message.version());
    made.chunked = parser.chunked();
    if (const auto length = parser.content_length())
    {
        made.contentLength = *length;
    }
    for (const auto& field : message)
    {
        made.fields.emplace_back(field.name_string(), field.value());
    }
    return made;
}

std::string_view HttpRequestHead::field(std::string_view name) const
{
    for (const auto& [present, value] : fields)
    {
        if (equalsIgnoringCase(present, name))
        {
            return value;
        }
    }
    return {};
}

bool HttpRequestHead::has(std::string_view name) const
{
    for (const auto& field : fields)
    {
        if (equalsIgnoringCase(field.first, name))
        {
            return true;
        }
    }
    return false;
}

bool HttpRequestHead::lists(std::string_view name, std::string_view token) const
{
    for (const auto& [present, value] : fields)
    {
        std::string_view rest = value;
        while (equalsIgnoringCase(present, name) && !rest.empty())
        {
            const std::size_t comma = rest.find(',');
            if (equalsIgnoringCase(trim(rest.substr(0, comma)), token))
            {
                return true;
            }
            rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
        }
    }
    return false;
}

}  // namespace refhost

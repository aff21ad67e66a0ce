#include "refhost/http/HttpReply.h"

#define BOOST_BEAST_USE_STD_STRING_VIEW
#include <algorithm>
#include <array>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/status.hpp>
#include <ctime>
#include <nlohmann/json.hpp>

#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

namespace http = boost::beast::http;

std::string reasonOf(int status)
{
    // RFC 9110 and RFC 6585 have them, this Beast does not.
    return std::string(http::obsolete_reason(http::int_to_status(static_cast<unsigned>(status))));
}

std::string dateText()
{
    constexpr std::size_t room = 40;
    std::array<char, room> text{};
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    return {text.data(), std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts)};
}

// Fields of every reply that does not say otherwise.
constexpr std::array<std::pair<std::string_view, std::string_view>, 4> usualFields{
    {{"Cache-Control", "no-store"},
     {"X-Content-Type-Options", "nosniff"},
     {"Content-Security-Policy", "default-src 'none'; frame-ancestors 'none'"},
     {"Referrer-Policy", "no-referrer"}}};

}  // namespace

HttpReply HttpReply::of(std::string_view contentType, std::string body)
{
    HttpReply reply;
    reply.body = std::move(body);
    reply.with("Content-Type", contentType);
    return reply;
}

HttpReply HttpReply::json(std::string document, int status)
{
    HttpReply reply = of("application/json", std::move(document));
    reply.status = status;
    return reply;
}

HttpReply HttpReply::problem(int status, std::string_view detail)
{
    const nlohmann::ordered_json document{{"type", "about:blank"},
                                          {"title", reasonOf(status)},
                                          {"status", status},
                                          {"detail", std::string(detail)}};
    HttpReply reply = of("application/problem+json",
                         document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
    reply.status = status;
    return reply;
}

HttpReply HttpReply::empty(int status)
{
    HttpReply reply;
    reply.status = status;
    return reply;
}

HttpReply HttpReply::stream(std::string_view contentType, std::shared_ptr<BodySource> source,
                            std::optional<std::uint64_t> length)
{
    HttpReply reply;
    reply.source = std::move(source);
    reply.length = length;
    reply.with("Content-Type", contentType);
    return reply;
}

HttpReply HttpReply::webSocket(std::string_view accept, std::shared_ptr<BodySource> source)
{
    HttpReply reply;
    reply.status = switchingProtocols;
    reply.source = std::move(source);
    reply.with("Upgrade", "websocket").with("Connection", "Upgrade").with("Sec-WebSocket-Accept", accept);
    return reply;
}

HttpReply& HttpReply::with(std::string_view name, std::string_view value)
{
    std::string safe(value);
    std::replace_if(
        safe.begin(), safe.end(), [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; },
        ' ');
    fields.emplace_back(name, std::move(safe));
    return *this;
}

std::string_view HttpReply::field(std::string_view name) const
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

bool HttpReply::bodiless() const
{
    constexpr int firstOfSuccess = 200;
    constexpr int noContent = 204;
    constexpr int notModified = 304;
    return status < firstOfSuccess || status == noContent || status == notModified;
}

std::string HttpReply::headText(bool http10, bool keepAlive) const
{
    http::response<http::empty_body> response;
    response.version(11);
    response.result(static_cast<unsigned>(status));
    response.reason(reasonOf(status));
    response.insert(http::field::date, dateText());
    response.insert(http::field::server, "ovrtspd");
    for (const auto& [name, value] : fields)
    {
        response.insert(name, value);
    }
    for (const auto& [name, value] : usualFields)
    {
        if (field(name).empty())
        {
            response.insert(std::string(name), std::string(value));
        }
    }
    if (chunked() && !http10)
    {
        response.insert(http::field::transfer_encoding, "chunked");
    }
    else if (!chunked() && !bodiless())
    {
        const std::uint64_t size = shared != nullptr ? shared->size() : body.size();
        response.insert(http::field::content_length, std::to_string(length.value_or(size)));
    }
    if (!switches())
    {
        response.insert(http::field::connection, keepAlive ? "keep-alive" : "close");
    }

    std::string text;
    http::response_serializer<http::empty_body> serializer(response);
    // The body's bytes are not its task.
    serializer.split(true);
    boost::beast::error_code error;
    while (!serializer.is_header_done() && !error)
    {
        serializer.next(error,
                        [&](boost::beast::error_code&, const auto& buffers)
                        {
                            for (auto each = boost::asio::buffer_sequence_begin(buffers);
                                 each != boost::asio::buffer_sequence_end(buffers); ++each)
                            {
                                const boost::asio::const_buffer buffer(*each);
                                text.append(static_cast<const char*>(buffer.data()), buffer.size());
                            }
                            serializer.consume(boost::beast::buffer_bytes(buffers));
                        });
    }
    return text;
}

}  // namespace refhost

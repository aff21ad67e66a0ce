#include "refhost/http/HttpRequestReader.h"

#define BOOST_BEAST_USE_STD_STRING_VIEW
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <utility>

#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

namespace http = boost::beast::http;

constexpr int badRequest = 400;
constexpr int tooLarge = 413;
constexpr int headTooLarge = 431;

int statusOf(const boost::beast::error_code& error)
{
    if (error == http::error::header_limit || error == http::error::buffer_overflow)
    {
        return headTooLarge;
    }
    return error == http::error::body_limit ? tooLarge : badRequest;
}

}  // namespace

struct HttpRequestReader::Impl
{
    explicit Impl(const Limits& limits)
    {
        parser.eager(true);
        parser.header_limit(static_cast<std::uint32_t>(limits.headerBytes));
        parser.body_limit(limits.bodyBytes);
    }

    http::request_parser<http::string_body> parser;
};

HttpRequestReader::HttpRequestReader(const Limits& limits) : limits_(limits)
{
    reset();
}

HttpRequestReader::~HttpRequestReader() = default;

void HttpRequestReader::reset()
{
    impl_ = std::make_unique<Impl>(limits_);
    expectationTaken_ = false;
}

HttpRequestReader::State HttpRequestReader::fail(int status)
{
    status_ = status;
    return State::failed;
}

HttpRequestReader::State HttpRequestReader::read(std::string_view bytes, std::size_t& used)
{
    used = 0;
    if (status_ != 0)
    {
        return State::failed;
    }
    // Empty lines before a request (RFC 9112, section 2.2).
    while (!impl_->parser.got_some() && bytes.substr(used, 2) == "\r\n")
    {
        used += 2;
    }
    if (bytes.substr(used) == "\r")
    {
        return State::partial;
    }
    boost::beast::error_code error;
    while (!impl_->parser.is_done() && used < bytes.size())
    {
        const std::size_t taken =
            impl_->parser.put(boost::asio::const_buffer(bytes.data() + used, bytes.size() - used), error);
        used += taken;
        if (error == http::error::need_more)
        {
            // The parser looks at a head only when it has the whole of it.
            const bool headTooLong =
                !impl_->parser.is_header_done() && bytes.size() - used > limits_.headerBytes;
            return headTooLong ? fail(headTooLarge) : State::partial;
        }
        if (error)
        {
            return fail(statusOf(error));
        }
    }
    return impl_->parser.is_done() ? State::complete : State::partial;
}

HttpRequest HttpRequestReader::take()
{
    auto message = impl_->parser.release();
    HttpRequest made;
    made.head.method = std::string(message.method_string());
    made.head.target = std::string(message.target());
    made.head.version = static_cast<int>(message.version());
    for (const auto& field : message)
    {
        made.head.fields.emplace_back(field.name_string(), field.value());
    }
    made.head.contentLength = message.body().size();
    made.keepAlive = message.keep_alive();
    made.body = std::move(message.body());
    reset();
    return made;
}

int HttpRequestReader::status() const
{
    return status_;
}

bool HttpRequestReader::takeExpectation()
{
    if (expectationTaken_ || !impl_->parser.is_header_done() || impl_->parser.is_done() ||
        !equalsIgnoringCase(impl_->parser.get()[http::field::expect], "100-continue"))
    {
        return false;
    }
    expectationTaken_ = true;
    return true;
}

bool HttpRequestReader::started() const
{
    return impl_->parser.got_some();
}

}  // namespace refhost

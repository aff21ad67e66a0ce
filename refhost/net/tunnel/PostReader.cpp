#include "refhost/net/tunnel/PostReader.h"

#include <algorithm>
#include <utility>

#include "refhost/net/http/HttpRequestHead.h"
#include "refhost/net/tunnel/TunnelHeaders.h"

namespace refhost
{
namespace
{

constexpr std::string_view requestStart = "POST ";

}  // namespace

PostReader::PostReader(std::string cookie, std::optional<std::uint64_t> length) : cookie_(std::move(cookie))
{
    start(length);
}

/// A request's body starts, and with it other base64.
void PostReader::start(std::optional<std::uint64_t> length)
{
    decoder_ = Base64Decoder();
    left_ = length;
    const bool empty = length && *length == 0;
    state_ = empty ? State::between : State::body;
    completed_ += empty ? 1 : 0;
}

bool PostReader::read(std::string_view bytes, std::string& out)
{
    while (!bytes.empty() && state_ != State::failed)
    {
        const bool good = state_ == State::body      ? readBody(bytes, out)
                          : state_ == State::between ? readBetween(bytes, out)
                                                     : readHead(bytes);
        state_ = good ? state_ : State::failed;
    }
    return state_ != State::failed;
}

bool PostReader::readBody(std::string_view& bytes, std::string& out)
{
    const std::size_t count =
        left_ && *left_ < bytes.size() ? static_cast<std::size_t>(*left_) : bytes.size();
    if (!decoder_.decode(bytes.substr(0, count), out))
    {
        return false;
    }
    bytes.remove_prefix(count);
    if (left_)
    {
        *left_ -= count;
        if (*left_ == 0)
        {
            state_ = State::between;
            ++completed_;
        }
    }
    return true;
}

bool PostReader::readBetween(std::string_view& bytes, std::string& out)
{
    const char next = bytes.front();
    if (text_.empty() && (next == '\r' || next == '\n'))
    {
        bytes.remove_prefix(1);
        return true;
    }
    if (next == requestStart[text_.size()])
    {
        text_ += next;
        bytes.remove_prefix(1);
        state_ = text_ == requestStart ? State::head : state_;
        return true;
    }
    // The base64 goes on, and may have started like a request.
    state_ = State::body;
    left_.reset();
    return decoder_.decode(std::exchange(text_, {}), out);
}

bool PostReader::readHead(std::string_view& bytes)
{
    constexpr std::string_view end = "\r\n\r\n";
    const std::size_t from = text_.size() < end.size() ? 0 : text_.size() - end.size();
    const std::size_t before = text_.size();
    text_.append(bytes.substr(0, maxHead - before));
    const std::size_t found = text_.find(end, from);
    if (found == std::string::npos)
    {
        bytes.remove_prefix(text_.size() - before);
        return text_.size() < maxHead;
    }
    text_.resize(found + end.size());
    bytes.remove_prefix(text_.size() - before);
    const auto head = HttpRequestHead::parse(std::exchange(text_, {}));
    if (!head || head->chunked || head->field(TunnelHeaders::cookie) != cookie_)
    {
        return false;
    }
    start(head->contentLength);
    return true;
}

bool PostReader::complete() const
{
    return state_ == State::between && text_.empty();
}

std::size_t PostReader::takeCompleted()
{
    return std::exchange(completed_, 0);
}

}  // namespace refhost

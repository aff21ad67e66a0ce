#include "refhost/rtsp/message/RequestReader.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/Decimal.h"
#include "refhost/base/HeaderText.h"

namespace refhost
{
namespace
{

constexpr std::string_view supportedVersion = "RTSP/1.0";
constexpr std::string_view protocolPrefix = "RTSP/";
constexpr std::size_t frameHeaderSize = 4;
// Larger than any body; keeps the sum of head and body far from overflow.
constexpr std::uint64_t largestContentLength = 0xffffffff;

bool isLineEnd(char c)
{
    return c == '\r' || c == '\n';
}

bool isFold(std::string_view line)
{
    return !line.empty() && (line.front() == ' ' || line.front() == '\t');
}

/// A message starts with a letter: methods as well as "RTSP/1.0 200".
bool canStartMessage(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == '-';
}

bool isResponse(const RtspRequest& message)
{
    return message.method.substr(0, protocolPrefix.size()) == protocolPrefix;
}

/// Whether a request line is of HTTP.
bool isHttp(std::string_view line)
{
    constexpr std::string_view protocol = " HTTP/";
    while (!line.empty() && (isLineEnd(line.back()) || line.back() == ' '))
    {
        line.remove_suffix(1);
    }
    const std::size_t version = line.rfind(' ');
    return version != std::string_view::npos && line.substr(version, protocol.size()) == protocol;
}

bool isVersion(std::string_view text)
{
    if (text.substr(0, protocolPrefix.size()) != protocolPrefix)
    {
        return false;
    }
    text.remove_prefix(protocolPrefix.size());
    const std::size_t dot = text.find('.');
    return dot != std::string_view::npos && parseDecimal<std::uint64_t>(text.substr(0, dot), 9999) &&
           parseDecimal<std::uint64_t>(text.substr(dot + 1), 9999);
}

bool hasControlCharacter(std::string_view line)
{
    // To the end in any case, so that many characters are looked at in one step.
    unsigned found = 0;
    for (const char c : line)
    {
        const auto byte = static_cast<unsigned char>(c);
        found |= static_cast<unsigned>(byte < ' ') & static_cast<unsigned>(byte != '\t');
        found |= static_cast<unsigned>(byte == 127);
    }
    return found != 0;
}

/// Removes the next line from `head` and returns it without its line end.
std::string_view takeLine(std::string_view& head)
{
    const std::size_t end = head.find('\n');
    std::string_view line = head.substr(0, end);
    head.remove_prefix(end == std::string_view::npos ? head.size() : end + 1);
    if (!line.empty() && line.back() == '\r')
    {
        line.remove_suffix(1);
    }
    return line;
}

/// Payload size of the interleaved frame at the start of `bytes`. Requires: its header is there.
std::size_t sizeOfFrame(std::string_view bytes)
{
    return readBig16(reinterpret_cast<const std::uint8_t*>(bytes.data()) + 2);
}

}  // namespace

RequestReader::RequestReader(const Limits& limits) : limits_(limits) {}

bool RequestReader::idle() const
{
    return !first_ && !broken_ && kept_.empty() && dropping_ == 0 && scanned_ == 0 && headSize_ == 0;
}

void RequestReader::feed(const char* data, std::size_t size)
{
    const std::size_t dropped = std::min(dropping_, size);
    dropping_ -= dropped;
    data += dropped;
    size -= dropped;
    if (broken_ || size == 0)
    {
        return;
    }
    if (kept_.empty())
    {
        input_ = std::string_view(data, size);
    }
    else
    {
        kept_.append(data, size);
        input_ = kept_;
    }
    position_ = 0;
}

RequestReader::Item RequestReader::next(RtspRequest& request)
{
    while (!broken_)
    {
        if (scanned_ == 0)
        {
            while (position_ < input_.size() && isLineEnd(input_[position_]))
            {
                ++position_;
            }
        }
        if (position_ == input_.size())
        {
            return wait();
        }
        if (dropLongFrame())
        {
            continue;
        }
        itemStart_ = position_;
        const Item item = input_[position_] == '$' ? nextFrame() : nextMessage(request);
        const bool response = item == Item::malformed && isResponse(request) && !problem_.fatal;
        if (!response)
        {
            return item;
        }
    }
    return Item::none;
}

/// \returns true when a frame above the limit starts here; it is dropped as it arrives
bool RequestReader::dropLongFrame()
{
    const std::string_view rest = input_.substr(position_);
    if (rest.front() != '$' || rest.size() < frameHeaderSize || sizeOfFrame(rest) <= limits_.frameBytes)
    {
        return false;
    }
    const std::size_t whole = frameHeaderSize + sizeOfFrame(rest);
    const std::size_t here = std::min(whole, rest.size());
    dropping_ = whole - here;
    advance(here);
    return true;
}

RequestReader::Item RequestReader::nextFrame()
{
    const std::string_view rest = input_.substr(position_);
    if (rest.size() < frameHeaderSize)
    {
        return wait();
    }
    const std::size_t size = sizeOfFrame(rest);
    if (rest.size() < frameHeaderSize + size)
    {
        return wait();
    }
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(rest.data());
    frame_ = {bytes[1], bytes + frameHeaderSize, size};
    advance(frameHeaderSize + size);
    return Item::frame;
}

RequestReader::Item RequestReader::nextMessage(RtspRequest& request)
{
    if (!canStartMessage(input_[position_]))
    {
        request.clear();
        return fail(rtspBadRequest);
    }
    bool wellFormed = true;
    const bool headWasKnown = headSize_ != 0;
    if (!headWasKnown)
    {
        if (!findHeadEnd())
        {
            request.clear();
            const bool tooLong = scanned_ > limits_.headerBytes || lines_ > limits_.headerCount + 1;
            return tooLong ? fail(lines_ == 0 ? rtspUriTooLong : rtspBadRequest) : wait();
        }
        const std::string_view rest = input_.substr(position_, headSize_);
        if (limits_.http && first_ && isHttp(rest.substr(0, rest.find('\n'))))
        {
            request.clear();
            broken_ = true;
            return Item::http;
        }
        wellFormed = parseHead(request);
        if (!readContentLength(request))
        {
            return fail(problem_.status);
        }
    }
    if (input_.size() - position_ < headSize_ + bodySize_)
    {
        return wait();
    }
    if (headWasKnown)
    {
        wellFormed = parseHead(request);
    }
    request.body = input_.substr(position_ + headSize_, bodySize_);
    advance(headSize_ + bodySize_);
    return wellFormed ? Item::request : Item::malformed;
}

/// Searches for the empty line. On false, scanned_ and lines_ show whether a limit was passed.
bool RequestReader::findHeadEnd()
{
    const std::string_view rest = input_.substr(position_);
    for (;;)
    {
        const void* found = std::memchr(rest.data() + scanned_, '\n', rest.size() - scanned_);
        if (found == nullptr)
        {
            scanned_ = rest.size();
            return false;
        }
        const auto lineEnd = static_cast<std::size_t>(static_cast<const char*>(found) - rest.data());
        scanned_ = lineEnd + 1;
        if (scanned_ > limits_.headerBytes)
        {
            return false;
        }
        if (lineEnd == lineStart_ || (lineEnd == lineStart_ + 1 && rest[lineStart_] == '\r'))
        {
            headSize_ = scanned_;
            return true;
        }
        lineStart_ = scanned_;
        if (++lines_ > limits_.headerCount + 1)
        {
            return false;
        }
    }
}

bool RequestReader::parseHead(RtspRequest& request)
{
    request.clear();
    problem_ = {rtspBadRequest, false};
    std::string_view head = input_.substr(position_, headSize_);
    bool good = parseRequestLine(takeLine(head), request);
    while (!head.empty())
    {
        const std::string_view line = takeLine(head);
        if (line.empty())
        {
            break;
        }
        // Continues after a bad line, so that the response can still have the request's CSeq.
        if (!parseHeaderLine(line, request))
        {
            good = false;
        }
    }
    return good;
}

bool RequestReader::parseRequestLine(std::string_view line, RtspRequest& request)
{
    const std::size_t methodEnd = line.find(' ');
    request.method = line.substr(0, methodEnd);
    if (methodEnd == std::string_view::npos || hasControlCharacter(line))
    {
        return false;
    }
    line.remove_prefix(methodEnd + 1);
    const std::size_t uriEnd = line.find(' ');
    if (uriEnd == std::string_view::npos)
    {
        return false;
    }
    request.uri = line.substr(0, uriEnd);
    request.version = line.substr(uriEnd + 1);
    if (!HeaderText::isToken(request.method) || request.uri.empty() || !isVersion(request.version))
    {
        return false;
    }
    if (request.version != supportedVersion)
    {
        problem_.status = rtspVersionNotSupported;
        return false;
    }
    return true;
}

bool RequestReader::parseHeaderLine(std::string_view line, RtspRequest& request)
{
    if (hasControlCharacter(line))
    {
        return false;
    }
    if (isFold(line))
    {
        if (request.headers.empty())
        {
            return false;
        }
        // The value extends over the line end: a view needs no copy, and every parser treats line ends as
        // blanks.
        std::string_view& value = request.headers.back().value;
        line = HeaderText::trim(line);
        if (!line.empty())
        {
            const char* const begin = value.empty() ? line.data() : value.data();
            value = std::string_view(begin, static_cast<std::size_t>(line.data() + line.size() - begin));
        }
        return true;
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos)
    {
        return false;
    }
    const std::string_view name = HeaderText::trim(line.substr(0, colon));
    if (!HeaderText::isToken(name))
    {
        return false;
    }
    request.headers.push_back({name, HeaderText::trim(line.substr(colon + 1))});
    return true;
}

bool RequestReader::readContentLength(const RtspRequest& request)
{
    bodySize_ = 0;
    std::optional<std::uint64_t> length;
    for (const RtspRequest::Header* header = request.find("Content-Length"); header != nullptr;
         header = request.find("Content-Length", header))
    {
        const auto value = parseDecimal<std::uint64_t>(header->value, largestContentLength);
        if (!value || (length && *length != *value))
        {
            problem_.status = rtspBadRequest;
            return false;
        }
        length = value;
    }
    if (length.value_or(0) > limits_.bodyBytes)
    {
        problem_.status = rtspEntityTooLarge;
        return false;
    }
    bodySize_ = static_cast<std::size_t>(length.value_or(0));
    return true;
}

RequestReader::Item RequestReader::fail(RtspStatus status)
{
    problem_ = {status, true};
    broken_ = true;
    return Item::malformed;
}

/// Keeps the remaining bytes until more arrive.
RequestReader::Item RequestReader::wait()
{
    const std::string_view rest = input_.substr(position_);
    if (rest.empty())
    {
        std::string().swap(kept_);
        input_ = {};
        position_ = 0;
        return Item::none;
    }
    if (position_ != 0 || input_.data() != kept_.data())
    {
        kept_ = std::string(rest);
        input_ = kept_;
        position_ = 0;
    }
    return Item::none;
}

void RequestReader::advance(std::size_t size)
{
    position_ += size;
    first_ = false;
    scanned_ = lineStart_ = lines_ = headSize_ = bodySize_ = 0;
}

const RequestReader::Frame& RequestReader::frame() const
{
    return frame_;
}

const RequestReader::Problem& RequestReader::problem() const
{
    return problem_;
}

std::string_view RequestReader::httpHead() const
{
    return input_.substr(position_, headSize_);
}

std::string_view RequestReader::httpRest() const
{
    return input_.substr(position_ + headSize_);
}

void RequestReader::putBack()
{
    position_ = itemStart_;
    scanned_ = lineStart_ = lines_ = headSize_ = bodySize_ = 0;
    wait();
}

void RequestReader::keepRest()
{
    wait();
}

std::size_t RequestReader::kept() const
{
    return kept_.size();
}

}  // namespace refhost

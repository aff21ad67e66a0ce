#include "refhost/ingest/client/CameraReceiver.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/Decimal.h"
#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

constexpr std::size_t framingSize = 4;
constexpr std::size_t minRoom = 2048;  // below it, moving what is left costs less than receiving little
constexpr std::string_view protocol = "RTSP/1.";
constexpr int statusOk = 200;

bool isLineEnd(char c)
{
    return c == '\r' || c == '\n';
}

/// The size of a head with the empty line behind it, 0 while that is missing.
/// \param from      where to start looking
/// \param[out] end  of the header lines
std::size_t findHead(std::string_view text, std::size_t from, std::size_t& end)
{
    for (end = text.find('\n', from); end != std::string_view::npos; end = text.find('\n', end + 1))
    {
        const std::string_view behind = text.substr(end + 1, 2);
        if (behind.substr(0, 1) == "\n")
        {
            return end + 2;
        }
        if (behind == "\r\n")
        {
            return end + 3;
        }
    }
    return 0;
}

}  // namespace

CameraReceiver::Room CameraReceiver::room()
{
    if (begin_ == end_)
    {
        begin_ = 0;
        end_ = 0;
    }
    const std::size_t held = end_ - begin_;
    const std::size_t kept = std::min(filled_ ? 2 * capacity_ : capacity_, maxRoom);
    const std::size_t required = std::max({firstRoom, kept, needed_});
    if (required > capacity_ || (held == 0 && required < capacity_))
    {
        move(required);
    }
    else if (capacity_ - end_ < minRoom || capacity_ - begin_ < needed_)
    {
        move(held < capacity_ ? capacity_ : capacity_ + firstRoom);
    }
    filled_ = false;
    return {reinterpret_cast<char*>(bytes_.get()) + end_, capacity_ - end_};
}

/// Moves what is left to the front, into other memory where the size changes.
void CameraReceiver::move(std::size_t capacity)
{
    const std::size_t held = end_ - begin_;
    if (capacity != capacity_)
    {
        std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[capacity]);  // not zeroed
        std::copy_n(bytes_.get() + begin_, held, bytes.get());
        bytes_ = std::move(bytes);
        capacity_ = capacity;
    }
    else
    {
        std::memmove(bytes_.get(), bytes_.get() + begin_, held);
    }
    begin_ = 0;
    end_ = held;
}

void CameraReceiver::received(std::size_t count)
{
    end_ += count;
    filled_ = end_ == capacity_;
}

std::string_view CameraReceiver::left() const
{
    return {reinterpret_cast<const char*>(bytes_.get()) + begin_, end_ - begin_};
}

CameraReceiver::Next CameraReceiver::next()
{
    for (;;)
    {
        if (!inBody_)
        {
            while (begin_ < end_ && isLineEnd(static_cast<char>(bytes_[begin_])))
            {
                ++begin_;
                scanned_ = 0;
            }
            if (begin_ == end_)
            {
                return Next::incomplete;
            }
        }
        const std::size_t before = begin_;
        const Next found = !inBody_ && bytes_[begin_] == '$' ? takePacket() : takeMessage();
        if (found != Next::incomplete || begin_ == before)
        {
            return found;
        }
        // An empty packet, or what belongs to nothing.
    }
}

CameraReceiver::Next CameraReceiver::takePacket()
{
    const std::uint8_t* const data = bytes_.get() + begin_;
    const std::size_t held = end_ - begin_;
    if (held < framingSize)
    {
        return Next::incomplete;
    }
    const std::size_t size = readBig16(data + 2);
    if (held < framingSize + size)
    {
        needed_ = framingSize + size;
        return Next::incomplete;
    }
    needed_ = 0;
    begin_ += framingSize + size;
    if (size == 0)
    {
        return Next::incomplete;
    }
    channel_ = data[1];
    packet_ = data + framingSize;
    packetSize_ = size;
    return Next::packet;
}

CameraReceiver::Next CameraReceiver::takeMessage()
{
    return inBody_ ? takeBody() : takeHead();
}

CameraReceiver::Next CameraReceiver::takeHead()
{
    const std::string_view text = left();
    if (static_cast<unsigned char>(text.front()) < ' ' || static_cast<unsigned char>(text.front()) >= 0x7f)
    {
        return Next::broken;
    }
    const std::size_t lineEnd = text.find('\n');
    if (lineEnd != std::string_view::npos && text.substr(0, lineEnd).find(protocol) == std::string_view::npos)
    {
        return skipLine(text.substr(0, lineEnd));
    }
    std::size_t end = 0;
    const std::size_t headSize = findHead(text, scanned_, end);
    if ((headSize == 0 ? text.size() : end) > CameraMessages::maxHeaderBytes)
    {
        return Next::broken;
    }
    if (headSize == 0)
    {
        scanned_ = text.size() < 2 ? 0 : text.size() - 2;
        return Next::incomplete;
    }
    if (!CameraMessages::readHead(text.substr(0, end), message_))
    {
        return Next::broken;
    }
    const std::string_view length = message_.header("content-length");
    const auto size =
        parseDecimal<std::size_t>(length.empty() ? "0" : length, 0, CameraMessages::maxBodyBytes);
    if (!size)
    {
        return Next::broken;
    }
    const bool open = length.empty() && message_.status == statusOk &&
                      lowerCase(message_.header("content-type")).find("sdp") != std::string::npos;
    begin_ += headSize;
    scanned_ = 0;
    inBody_ = true;
    bodySize_ = open ? unknown : *size;
    return takeBody();
}

CameraReceiver::Next CameraReceiver::takeBody()
{
    if (bodySize_ == unknown)
    {
        return findBodyEnd();
    }
    if (end_ - begin_ < bodySize_)
    {
        needed_ = bodySize_;
        return Next::incomplete;
    }
    finishMessage(bodySize_);
    return Next::message;
}

/// A description's lines are "x=…": it ends before a line that is not.
CameraReceiver::Next CameraReceiver::findBodyEnd()
{
    const std::string_view text = left();
    while (scanned_ < text.size())
    {
        const std::string_view line = text.substr(scanned_);
        const bool blank = isLineEnd(line.front());
        if (line.front() == '$' || (!blank && line.size() > 1 && line[1] != '='))
        {
            finishMessage(scanned_);
            return Next::message;
        }
        const std::size_t end = line.find('\n');
        if (end == std::string_view::npos)
        {
            break;
        }
        scanned_ += end + 1;
    }
    needed_ = text.size() + minRoom;
    return text.size() > CameraMessages::maxBodyBytes ? Next::broken : Next::openBody;
}

void CameraReceiver::endBody()
{
    finishMessage(end_ - begin_);
}

void CameraReceiver::finishMessage(std::size_t bodySize)
{
    message_.body = left().substr(0, bodySize);
    begin_ += bodySize;
    needed_ = 0;
    scanned_ = 0;
    inBody_ = false;
}

/// What a body has beyond its Content-Length, or what else belongs to nothing.
CameraReceiver::Next CameraReceiver::skipLine(std::string_view text)
{
    skipped_ += text.size() + 1;
    const bool isText =
        std::all_of(text.begin(), text.end(),
                    [](char c) { return static_cast<unsigned char>(c) >= ' ' || c == '\r' || c == '\t'; });
    if (skipped_ > maxSkippedBytes || !isText || text.substr(0, 5) == "HTTP/")
    {
        return Next::broken;
    }
    begin_ += text.size() + 1;
    scanned_ = 0;
    return Next::incomplete;
}

}  // namespace refhost

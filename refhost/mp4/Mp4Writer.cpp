#include "refhost/mp4/Mp4Writer.h"

#include "refhost/base/ByteOrder.h"

namespace refhost
{

Mp4Writer::Box Mp4Writer::open(std::string_view type)
{
    const Box box = bytes_.size();
    add32(0);
    addText(type);
    return box;
}

Mp4Writer::Box Mp4Writer::open(std::string_view type, std::uint8_t version, std::uint32_t flags)
{
    const Box box = open(type);
    add8(version);
    add24(flags);
    return box;
}

void Mp4Writer::close(Box box)
{
    set32(box, static_cast<std::uint32_t>(bytes_.size() - box));
}

void Mp4Writer::add8(std::uint8_t value)
{
    bytes_.push_back(value);
}

void Mp4Writer::add16(std::uint16_t value)
{
    add8(static_cast<std::uint8_t>(value >> 8U));
    add8(static_cast<std::uint8_t>(value));
}

void Mp4Writer::add24(std::uint32_t value)
{
    add8(static_cast<std::uint8_t>(value >> 16U));
    add16(static_cast<std::uint16_t>(value));
}

void Mp4Writer::add32(std::uint32_t value)
{
    add16(static_cast<std::uint16_t>(value >> 16U));
    add16(static_cast<std::uint16_t>(value));
}

void Mp4Writer::add64(std::uint64_t value)
{
    add32(static_cast<std::uint32_t>(value >> 32U));
    add32(static_cast<std::uint32_t>(value));
}

void Mp4Writer::addText(std::string_view text)
{
    bytes_.insert(bytes_.end(), text.begin(), text.end());
}

void Mp4Writer::addBytes(ByteSpan bytes)
{
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

void Mp4Writer::addZeros(std::size_t count)
{
    bytes_.insert(bytes_.end(), count, 0);
}

void Mp4Writer::addMatrix()
{
    constexpr std::uint32_t one = 0x10000;
    constexpr std::uint32_t last = 0x40000000;
    for (const std::uint32_t value : {one, 0U, 0U, 0U, one, 0U, 0U, 0U, last})
    {
        add32(value);
    }
}

void Mp4Writer::set32(std::size_t at, std::uint32_t value)
{
    writeBig32(bytes_.data() + at, value);
}

void Mp4Writer::set64(std::size_t at, std::uint64_t value)
{
    set32(at, static_cast<std::uint32_t>(value >> 32U));
    set32(at + 4, static_cast<std::uint32_t>(value));
}

}  // namespace refhost

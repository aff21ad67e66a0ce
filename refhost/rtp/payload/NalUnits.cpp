#include "refhost/rtp/payload/NalUnits.h"

#include <utility>

#include "refhost/base/ByteOrder.h"

namespace refhost
{

void NalUnits::addLength(std::size_t size)
{
    bytes_.resize(bytes_.size() + lengthSize);
    writeBig32(bytes_.data() + bytes_.size() - lengthSize, static_cast<std::uint32_t>(size));
}

void NalUnits::add(ByteSpan unit)
{
    addLength(unit.size);
    bytes_.insert(bytes_.end(), unit.begin(), unit.end());
}

void NalUnits::open(ByteSpan header)
{
    openAt_ = bytes_.size();
    add(header);
}

void NalUnits::append(ByteSpan body)
{
    bytes_.insert(bytes_.end(), body.begin(), body.end());
}

void NalUnits::close(bool whole)
{
    if (!whole)
    {
        bytes_.resize(openAt_);
        return;
    }
    writeBig32(bytes_.data() + openAt_, static_cast<std::uint32_t>(bytes_.size() - openAt_ - lengthSize));
}

std::vector<std::uint8_t> NalUnits::take()
{
    constexpr std::size_t tolerated = 4096;
    if (bytes_.capacity() > 2 * bytes_.size() + tolerated)
    {
        bytes_.shrink_to_fit();
    }
    return std::exchange(bytes_, {});
}

void NalUnits::putInFront(const NalUnits& units)
{
    bytes_.insert(bytes_.begin(), units.bytes_.begin(), units.bytes_.end());
}

}  // namespace refhost

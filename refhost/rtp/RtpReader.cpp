#include "refhost/rtp/RtpReader.h"

#include "refhost/base/ByteOrder.h"

namespace refhost
{
namespace
{

constexpr std::size_t fixedHeader = 12;
constexpr std::size_t extensionHeader = 4;

}  // namespace

bool RtpReader::hasHeader(const std::uint8_t* data, std::size_t size)
{
    return size >= fixedHeader && data[0] >> 6U == 2;
}

bool RtpReader::read(const std::uint8_t* data, std::size_t size, RtpPacketView& out)
{
    if (!hasHeader(data, size))
    {
        return false;
    }
    std::size_t begin = fixedHeader + std::size_t{data[0] & 0x0fU} * 4;
    if ((data[0] & 0x10U) != 0)
    {
        if (size < begin + extensionHeader)
        {
            return false;
        }
        begin += extensionHeader + std::size_t{readBig16(data + begin + 2)} * 4;
    }
    // The last byte counts the padding bytes, itself included.
    const std::size_t padding = (data[0] & 0x20U) != 0 ? data[size - 1] : 0;
    const bool paddedByNothing = (data[0] & 0x20U) != 0 && padding == 0;
    if (paddedByNothing || size <= begin + padding)
    {
        return false;
    }
    out.marker = (data[1] & 0x80U) != 0;
    out.payloadType = data[1] & 0x7fU;
    out.sequence = readBig16(data + 2);
    out.timestamp = readBig32(data + 4);
    out.ssrc = readBig32(data + 8);
    out.payload = data + begin;
    out.payloadSize = size - begin - padding;
    return true;
}

}  // namespace refhost

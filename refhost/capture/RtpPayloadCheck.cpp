#include "refhost/capture/RtpPayloadCheck.h"

#include "refhost/base/ByteOrder.h"
#include "refhost/media/NalSyntax.h"

namespace refhost
{
namespace
{

constexpr std::size_t headerSize = 12;
constexpr std::uint8_t paddingBit = 0x20;
constexpr std::uint8_t extensionBit = 0x10;

// RFC 6184 with packetization modes 0 and 1: single units, STAP-A and FU-A. RFC 7798 without decoding order numbers:
// single units, aggregation packets and fragments. Each unit has a byte behind its header at least.
bool nalUnitsFit(const NalSyntax& syntax, ByteSpan payload)
{
    if (payload.size <= syntax.headerSize())
    {
        return false;
    }
    switch (syntax.kindOf(payload))
    {
        case NalKind::aggregate:
            return forEachAggregated(payload.from(syntax.headerSize()), syntax.headerSize() + 1,
                                     [](ByteSpan) {});
        case NalKind::fragment:
            return payload.size > syntax.fragmentHeaderSize();
        default:
            return syntax.kindOf(payload) != NalKind::refused;
    }
}

// RFC 3640: the length of the access unit headers in bits stands in front.
bool aacFits(const RtpPayloadCheck::Payload& payload)
{
    constexpr std::size_t bitsOfByte = 8;
    if (payload.size <= 2)
    {
        return false;
    }
    const std::size_t bits = readBig16(payload.data);
    return bits > 0 && (bits + bitsOfByte - 1) / bitsOfByte < payload.size - 2;
}

// RFC 2435: the main header, that of restart markers, and in front of a frame quantization tables.
bool jpegFits(const RtpPayloadCheck::Payload& payload)
{
    constexpr std::size_t mainHeader = 8;
    constexpr std::size_t shortHeader = 4;
    constexpr std::size_t tableSize = 64;  // with 8 bits; twice as much with 16
    constexpr unsigned restarts = 64;
    constexpr unsigned firstWithTables = 128;
    if (payload.size <= mainHeader)
    {
        return false;
    }
    const std::uint8_t* const data = payload.data;
    const unsigned type = data[4];
    const unsigned quality = data[5];
    const bool first = data[1] == 0 && data[2] == 0 && data[3] == 0;
    std::size_t at = mainHeader + ((type & restarts) != 0 ? shortHeader : 0);
    if ((type & ~restarts) > 1 || quality == 0)
    {
        return false;
    }
    if (first && quality >= firstWithTables)
    {
        if (payload.size < at + shortHeader)
        {
            return false;
        }
        const unsigned precision = data[at + 1];
        const std::size_t length = readBig16(data + at + 2);
        const std::size_t needed =
            tableSize * (1 + (precision & 1U)) + tableSize * (1 + (precision >> 1U & 1U));
        if (length != 0 && length < needed)
        {
            return false;
        }
        at += shortHeader + length;
    }
    return at < payload.size;
}

}  // namespace

bool RtpPayloadCheck::find(const std::uint8_t* packet, std::size_t size, Payload& payload)
{
    if (size < headerSize || packet[0] >> 6U != 2)
    {
        return false;
    }
    std::size_t at = headerSize + std::size_t{4} * (packet[0] & 0x0fU);
    if ((packet[0] & extensionBit) != 0)
    {
        if (size < at + 4)
        {
            return false;
        }
        at += 4 + std::size_t{4} * readBig16(packet + at + 2);
    }
    const std::size_t padding = (packet[0] & paddingBit) != 0 ? packet[size - 1] : 0;
    if (size < at + padding || ((packet[0] & paddingBit) != 0 && padding == 0))
    {
        return false;
    }
    payload.data = packet + at;
    payload.size = size - at - padding;
    return true;
}

bool RtpPayloadCheck::isWellFormed(const std::optional<Codec>& codec, const Payload& payload)
{
    if (payload.size == 0 || !codec)
    {
        return payload.size > 0;
    }
    switch (*codec)
    {
        case Codec::h264:
        case Codec::h265:
            return nalUnitsFit(NalSyntax::of(*codec), {payload.data, payload.size});
        case Codec::aac:
            return aacFits(payload);
        case Codec::pcmu:
        case Codec::pcma:
            return true;
        case Codec::opus:
            return infoOf(*codec).samplesIn(payload.data, payload.size, 1) > 0;
        case Codec::mjpeg:
            return jpegFits(payload);
    }
    return true;
}

}  // namespace refhost

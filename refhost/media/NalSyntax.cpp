#include "refhost/media/NalSyntax.h"

#include <algorithm>

#include "refhost/media/BitReader.h"

namespace refhost
{
namespace
{

constexpr std::uint8_t startBit = 0x80;
constexpr std::uint8_t endBit = 0x40;

namespace h264
{

constexpr unsigned stapA = 24;
constexpr unsigned stapB = 25;
constexpr unsigned mtap24 = 27;
constexpr unsigned fuA = 28;
constexpr unsigned fuB = 29;
constexpr std::uint8_t typeBits = 0x1f;
constexpr std::uint8_t importanceBits = 0x60;

NalKind kindOf(unsigned type)
{
    switch (type)
    {
        case 1:
        case 2:
        case 3:
        case 4:
            return NalKind::slice;
        case 5:
            return NalKind::keySlice;
        case 6:
            return NalKind::information;
        case 7:
            return NalKind::sequenceSet;
        case 8:
            return NalKind::frameSet;
        case 9:
            return NalKind::delimiter;
        case 12:
            return NalKind::filler;
        case stapA:
            return NalKind::aggregate;
        case fuA:
            return NalKind::fragment;
        default:
            return type == 0 || type > stapA ? NalKind::refused : NalKind::other;
    }
}

}  // namespace h264

namespace h265
{

constexpr unsigned aggregation = 48;
constexpr unsigned fragmentation = 49;
constexpr unsigned contentInformation = 50;
constexpr unsigned firstRandomAccess = 16;
constexpr unsigned lastRandomAccess = 23;
constexpr unsigned firstOtherThanSlice = 32;
// Forbidden bit and the first of the layer; the type stands between.
constexpr std::uint8_t aroundType = 0x81;

NalKind kindOf(unsigned type)
{
    if (type < firstOtherThanSlice)
    {
        return type >= firstRandomAccess && type <= lastRandomAccess ? NalKind::keySlice : NalKind::slice;
    }
    switch (type)
    {
        case 32:
            return NalKind::videoSet;
        case 33:
            return NalKind::sequenceSet;
        case 34:
            return NalKind::frameSet;
        case 35:
            return NalKind::delimiter;
        case 38:
            return NalKind::filler;
        case 39:
            return NalKind::information;
        case aggregation:
            return NalKind::aggregate;
        case fragmentation:
            return NalKind::fragment;
        default:
            return type > fragmentation ? NalKind::refused : NalKind::other;
    }
}

unsigned typeOf(std::uint8_t firstByte)
{
    return firstByte >> 1U & 0x3fU;
}

}  // namespace h265

}  // namespace

const NalSyntax& NalSyntax::of(Codec codec)
{
    static const NalSyntax h264(Codec::h264, 1);
    static const NalSyntax h265(Codec::h265, 2);
    return codec == Codec::h265 ? h265 : h264;
}

NalKind NalSyntax::kindOf(ByteSpan unit) const
{
    return codec_ == Codec::h265 ? h265::kindOf(h265::typeOf(unit[0]))
                                 : h264::kindOf(unit[0] & h264::typeBits);
}

bool NalSyntax::isSameType(ByteSpan one, ByteSpan other) const
{
    return codec_ == Codec::h265 ? h265::typeOf(one[0]) == h265::typeOf(other[0])
                                 : (one[0] & h264::typeBits) == (other[0] & h264::typeBits);
}

const char* NalSyntax::refusalOf(ByteSpan payload) const
{
    if (codec_ == Codec::h265)
    {
        return h265::typeOf(payload[0]) == h265::contentInformation ? "PACI packets are not read"
                                                                    : "reserved type of NAL unit";
    }
    const unsigned type = payload[0] & h264::typeBits;
    if (type == h264::stapB)
    {
        return "interleaved packets (STAP-B) are not read";
    }
    if (type > h264::stapB && type <= h264::mtap24)
    {
        return "interleaved packets (MTAP) are not read";
    }
    return type == h264::fuB ? "interleaved packets (FU-B) are not read" : "reserved type of NAL unit";
}

bool NalSyntax::startsFrame(ByteSpan body)
{
    constexpr std::uint8_t firstBit = 0x80;
    return !body.empty() && (body[0] & firstBit) != 0;
}

bool NalSyntax::isIntra(ByteSpan body) const
{
    constexpr std::size_t enough = 16;
    constexpr std::uint32_t intra = 2;
    constexpr std::uint32_t switchingIntra = 4;
    constexpr std::uint32_t types = 5;
    if (codec_ != Codec::h264)
    {
        return false;
    }
    BitReader reader(body.data, std::min(body.size, enough));
    reader.ue();  // first_mb_in_slice
    const std::uint32_t type = reader.ue() % types;
    return !reader.failed() && (type == intra || type == switchingIntra);
}

bool NalSyntax::isRecoveryPoint(ByteSpan unit) const
{
    constexpr unsigned recoveryPoint = 6;
    constexpr std::uint8_t more = 0xff;
    if (codec_ != Codec::h264)
    {
        return false;
    }
    ByteSpan left = unit.from(headerSize_);
    // A number of 0xff and a rest: of the type, then of the size (7.3.2.3.1).
    const auto number = [&left]
    {
        std::size_t sum = 0;
        while (!left.empty() && left[0] == more)
        {
            sum += more;
            left = left.from(1);
        }
        if (!left.empty())
        {
            sum += left[0];
            left = left.from(1);
        }
        return sum;
    };
    while (left.size > 2)
    {
        const std::size_t type = number();
        const std::size_t size = number();
        if (size > left.size)
        {
            return false;
        }
        if (type == recoveryPoint)
        {
            BitReader reader(left.data, size);
            const bool exact = reader.ue() == 0;
            return exact && !reader.failed();
        }
        left = left.from(size);
    }
    return false;
}

bool NalSyntax::readFragment(ByteSpan payload, Fragment& out) const
{
    constexpr std::uint8_t h265TypeBits = 0x3f;
    if (payload.size <= fragmentHeaderSize())
    {
        return false;
    }
    const std::uint8_t flags = payload[headerSize_];
    out.starts = (flags & startBit) != 0;
    out.ends = (flags & endBit) != 0;
    out.body = payload.from(fragmentHeaderSize());
    if (codec_ == Codec::h265)
    {
        out.header[0] =
            static_cast<std::uint8_t>((payload[0] & h265::aroundType) | (flags & h265TypeBits) << 1U);
        out.header[1] = payload[1];
    }
    else
    {
        out.header[0] = static_cast<std::uint8_t>((payload[0] & ~h264::typeBits) | (flags & h264::typeBits));
        out.header[1] = 0;
    }
    return true;
}

void NalSyntax::markEnd(std::uint8_t* payload) const
{
    payload[headerSize_] |= endBit;
}

void NalSyntax::writeFragmentHeader(ByteSpan unit, bool starts, bool ends, std::uint8_t* at) const
{
    const unsigned flags = (starts ? startBit : 0U) | (ends ? endBit : 0U);
    if (codec_ == Codec::h265)
    {
        at[0] = static_cast<std::uint8_t>((unit[0] & h265::aroundType) | h265::fragmentation << 1U);
        at[1] = unit[1];
        at[2] = static_cast<std::uint8_t>(flags | h265::typeOf(unit[0]));
        return;
    }
    at[0] = static_cast<std::uint8_t>((unit[0] & ~h264::typeBits) | h264::fuA);
    at[1] = static_cast<std::uint8_t>(flags | (unit[0] & h264::typeBits));
}

void NalSyntax::startAggregate(ByteSpan unit, std::uint8_t* at) const
{
    if (codec_ == Codec::h265)
    {
        at[0] = static_cast<std::uint8_t>((unit[0] & h265::aroundType) | h265::aggregation << 1U);
        at[1] = unit[1];
        return;
    }
    at[0] = static_cast<std::uint8_t>((unit[0] & ~h264::typeBits) | h264::stapA);
}

void NalSyntax::joinAggregate(ByteSpan unit, std::uint8_t* at) const
{
    if (codec_ == Codec::h265)
    {
        // Layer and temporal identity: the lowest of all (RFC 7798, section 4.4.2).
        const unsigned own = (at[0] & 1U) << 8U | at[1];
        const unsigned other = (unit[0] & 1U) << 8U | unit[1];
        const unsigned lowest = std::min(own >> 3U, other >> 3U) << 3U | std::min(own & 7U, other & 7U);
        at[0] = static_cast<std::uint8_t>((at[0] & ~1U) | lowest >> 8U);
        at[1] = static_cast<std::uint8_t>(lowest);
        return;
    }
    const unsigned importance = std::max(at[0] & h264::importanceBits, unit[0] & h264::importanceBits);
    at[0] = static_cast<std::uint8_t>((at[0] & ~h264::importanceBits) | importance);
}

}  // namespace refhost

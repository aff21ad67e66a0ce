#include "refhost/mp4/SampleEntry.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace refhost
{
namespace
{

constexpr std::uint8_t jpegObject = 0x6c;  // object types of ISO/IEC 14496-1, table 5
constexpr std::uint8_t aacObject = 0x40;
constexpr std::uint8_t visualStream = 4;
constexpr std::uint8_t audioStream = 5;

const char* typeOf(Codec codec)
{
    switch (codec)
    {
        case Codec::h264:
            return "avc1";
        case Codec::h265:
            return "hvc1";
        case Codec::mjpeg:
            return "mp4v";
        case Codec::aac:
            return "mp4a";
        case Codec::opus:
            return "Opus";
        case Codec::pcmu:
            return "ulaw";
        case Codec::pcma:
            return "alaw";
    }
    return "";
}

/// A descriptor's tag and its length in four bytes.
void addDescriptor(Mp4Writer& out, std::uint8_t tag, std::size_t size)
{
    out.add8(tag);
    for (unsigned shift = 21; shift > 0; shift -= 7)
    {
        out.add8(static_cast<std::uint8_t>(size >> shift) | 0x80U);
    }
    out.add8(static_cast<std::uint8_t>(size & 0x7fU));
}

/// ISO/IEC 14496-14, section 5.6, with the descriptors of ISO/IEC 14496-1, section 7.2.6.
void addStreamDescription(Mp4Writer& out, std::uint8_t object, std::uint8_t stream, ByteSpan config)
{
    constexpr std::size_t head = 5;  // tag and length
    const std::size_t configSize = config.empty() ? 0 : head + config.size;
    const std::size_t decoderSize = 13 + configSize;
    const Mp4Writer::Box box = out.open("esds", 0, 0);
    addDescriptor(out, 3, 3 + head + decoderSize + head + 1);
    out.add24(0);  // number and flags
    addDescriptor(out, 4, decoderSize);
    out.add8(object);
    out.add8(static_cast<std::uint8_t>(stream << 2U | 1U));
    out.addZeros(11);  // buffer size and bit rates: unknown
    if (configSize > 0)
    {
        addDescriptor(out, 5, config.size);
        out.addBytes(config);
    }
    addDescriptor(out, 6, 1);
    out.add8(2);  // as in all MP4 files
    out.close(box);
}

void addRecord(Mp4Writer& out, const char* type, ByteSpan record)
{
    const Mp4Writer::Box box = out.open(type);
    out.addBytes(record);
    out.close(box);
}

void addVideo(Mp4Writer& out, const MediaFormat& format)
{
    constexpr std::uint32_t dotsPerInch = 72U << 16U;
    out.addZeros(16);
    out.add16(static_cast<std::uint16_t>(format.width));
    out.add16(static_cast<std::uint16_t>(format.height));
    out.add32(dotsPerInch);
    out.add32(dotsPerInch);
    out.add32(0);
    out.add16(1);       // one frame in each sample
    out.addZeros(32);   // name of the encoder
    out.add16(24);      // colours without an alpha channel
    out.add16(0xffff);  // no colour table
    if (format.codec == Codec::mjpeg)
    {
        addStreamDescription(out, jpegObject, visualStream, {});
        return;
    }
    addRecord(out, format.codec == Codec::h264 ? "avcC" : "hvcC", format.codecData);
}

void addAudio(Mp4Writer& out, const MediaFormat& format)
{
    constexpr std::uint16_t bitsPerSample = 16;
    const auto channels = static_cast<std::uint16_t>(format.channels);
    // The field has no room for more than 65535 Hz; the configuration says the rate in any case.
    const auto rate = static_cast<std::uint32_t>(std::min(format.sampleRate, 0xffff));
    out.addZeros(8);
    out.add16(channels);
    out.add16(bitsPerSample);
    out.add32(0);
    out.add32(rate << 16U);
    if (format.codec == Codec::aac)
    {
        addStreamDescription(out, aacObject, audioStream, format.codecData);
    }
    else if (format.codec == Codec::opus)
    {
        const Mp4Writer::Box box = out.open("dOps");
        out.add8(0);
        out.add8(static_cast<std::uint8_t>(channels));
        out.add16(0);  // nothing to skip: a recording starts within a stream
        out.add32(rate);
        out.add16(0);  // gain
        out.add8(0);   // one stream of one or two channels
        out.close(box);
    }
}

/// ISO/IEC 14496-15, annex E: profile, compatibility in reverse, tier and level, constraints.
std::string hevcString(const std::vector<std::uint8_t>& record)
{
    constexpr std::size_t size = 13;
    constexpr std::array<const char*, 4> spaces{"", "A", "B", "C"};
    if (record.size() < size)
    {
        return "";
    }
    std::uint32_t compatible = 0;
    for (unsigned bit = 0; bit < 32; ++bit)
    {
        compatible |= static_cast<std::uint32_t>(record[2 + bit / 8] >> (7 - bit % 8) & 1U) << bit;
    }
    std::string text = fmt::format("hvc1.{}{}.{:X}.{}{}", spaces.at(record[1] >> 6U), record[1] & 0x1fU,
                                   compatible, (record[1] & 0x20U) != 0 ? 'H' : 'L', record[12]);
    std::size_t end = 12;
    while (end > 6 && record[end - 1] == 0)
    {
        --end;
    }
    for (std::size_t i = 6; i < end; ++i)
    {
        text += fmt::format(".{:X}", record[i]);
    }
    return text;
}

std::string aacString(const std::vector<std::uint8_t>& config)
{
    constexpr unsigned escape = 31;
    if (config.size() < 2)
    {
        return "";
    }
    unsigned object = config[0] >> 3U;
    if (object == escape)
    {
        object = 32 + ((config[0] & 7U) << 3U | config[1] >> 5U);
    }
    return fmt::format("mp4a.40.{}", object);
}

}  // namespace

void SampleEntry::write(Mp4Writer& out, const MediaFormat& format)
{
    const Mp4Writer::Box box = out.open(typeOf(format.codec));
    out.addZeros(6);
    out.add16(1);  // the media are in this file
    if (isVideo(format.codec))
    {
        addVideo(out, format);
    }
    else
    {
        addAudio(out, format);
    }
    out.close(box);
}

std::string SampleEntry::codecString(const MediaFormat& format)
{
    switch (format.codec)
    {
        case Codec::h264:
            return format.codecData.size() < 4 ? ""
                                               : fmt::format("avc1.{:02X}{:02X}{:02X}", format.codecData[1],
                                                             format.codecData[2], format.codecData[3]);
        case Codec::h265:
            return hevcString(format.codecData);
        case Codec::aac:
            return aacString(format.codecData);
        case Codec::opus:
            return "opus";
        default:
            return "";
    }
}

}  // namespace refhost

#include "bench/origin/CannedVideo.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace rtsporigin
{
namespace
{

// RFC 6184 table 1.
constexpr std::uint8_t idrSlice = 5;
constexpr std::uint8_t sei = 6;
constexpr std::uint8_t spsType = 7;
constexpr std::uint8_t ppsType = 8;
constexpr std::uint8_t delimiter = 9;
constexpr std::uint8_t fillerData = 12;
constexpr std::uint8_t fuA = 28;

struct Nal
{
    const std::uint8_t* data;
    std::size_t size;

    std::uint8_t type() const
    {
        return data[0] & 0x1F;
    }
    bool isSlice() const
    {
        return type() >= 1 && type() <= idrSlice;
    }
    /// A slice whose first_mb_in_slice is 0, which is a single 1 bit.
    bool isFirstSlice() const
    {
        return isSlice() && size > 1 && (data[1] & 0x80) != 0;
    }
};

std::vector<Nal> nalsOf(const Bytes& stream)
{
    constexpr std::array<std::uint8_t, 3> startCode{0, 0, 1};
    std::vector<Nal> nals;
    auto start = std::search(stream.begin(), stream.end(), startCode.begin(), startCode.end());
    while (start != stream.end())
    {
        const auto first = start + startCode.size();
        const auto next = std::search(first, stream.end(), startCode.begin(), startCode.end());
        auto last = next;
        while (last != first && *(last - 1) == 0)
        {
            --last;
        }
        if (last != first)
        {
            nals.push_back({&*first, static_cast<std::size_t>(last - first)});
        }
        start = next;
    }
    return nals;
}

void addPacket(CannedUnit& unit, std::uint8_t payloadType, const Bytes& prefix, const std::uint8_t* data,
               std::size_t size)
{
    constexpr std::size_t headerSize = 12;
    const std::size_t length = headerSize + prefix.size() + size;
    unit.packets.push_back(unit.bytes.size());
    const std::array<std::uint8_t, 6> known{
        '$', 0, static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length), 0x80, payloadType};
    unit.bytes.insert(unit.bytes.end(), known.begin(), known.end());
    unit.bytes.resize(unit.bytes.size() + headerSize - 2);
    unit.bytes.insert(unit.bytes.end(), prefix.begin(), prefix.end());
    unit.bytes.insert(unit.bytes.end(), data, data + size);
}

void addNal(CannedUnit& unit, const Nal& nal)
{
    if (nal.size <= CannedVideo::maxPayload)
    {
        return addPacket(unit, CannedVideo::payloadType, {}, nal.data, nal.size);
    }
    constexpr std::size_t maxFragment = CannedVideo::maxPayload - 2;
    const auto indicator = static_cast<std::uint8_t>((nal.data[0] & 0xE0) | fuA);
    for (std::size_t done = 1; done < nal.size;)
    {
        const std::size_t size = std::min(maxFragment, nal.size - done);
        const int first = done == 1 ? 0x80 : 0;
        const int last = done + size == nal.size ? 0x40 : 0;
        const auto header = static_cast<std::uint8_t>(nal.type() | first | last);
        addPacket(unit, CannedVideo::payloadType, {indicator, header}, nal.data + done, size);
        done += size;
    }
}

void setMarker(CannedUnit& unit)
{
    unit.bytes[unit.packets.back() + 5] |= 0x80;
}

std::string base64(const Bytes& bytes)
{
    constexpr const char* digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3)
    {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
        std::uint32_t bits = 0;
        for (std::size_t k = 0; k < 3; ++k)
        {
            bits = bits << 8 | (k < count ? bytes[i + k] : 0U);
        }
        for (std::size_t k = 0; k < 4; ++k)
        {
            text += k <= count ? digits[bits >> (18 - 6 * k) & 0x3F] : '=';
        }
    }
    return text;
}

}  // namespace

CannedVideo CannedVideo::pack(const Bytes& stream)
{
    CannedVideo video;
    CannedUnit unit;
    bool hasSlice = false;
    const auto finish = [&]
    {
        if (hasSlice)
        {
            setMarker(unit);
            video.units.push_back(std::move(unit));
        }
        unit = {};
        hasSlice = false;
    };
    for (const Nal& nal : nalsOf(stream))
    {
        const std::uint8_t type = nal.type();
        const bool opens = nal.isFirstSlice() || (type >= sei && type <= delimiter);
        if (hasSlice && opens)
        {
            finish();
        }
        if (type == spsType && video.sps.empty())
        {
            video.sps.assign(nal.data, nal.data + nal.size);
        }
        if (type == ppsType && video.pps.empty())
        {
            video.pps.assign(nal.data, nal.data + nal.size);
        }
        hasSlice = hasSlice || nal.isSlice();
        unit.keyFrame = unit.keyFrame || type == idrSlice;
        if (type != delimiter && type != fillerData)
        {
            addNal(unit, nal);
        }
    }
    finish();
    if (video.units.empty() || !video.units.front().keyFrame || video.sps.size() < 4 || video.pps.empty())
    {
        throw std::runtime_error("not an H.264 byte stream that starts with a key frame");
    }
    return video;
}

CannedVideo CannedVideo::read(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
    {
        throw std::runtime_error(path + " cannot be read");
    }
    return pack(Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()));
}

std::string CannedVideo::formatParameters() const
{
    char profile[8];
    std::snprintf(profile, sizeof profile, "%02X%02X%02X", sps[1], sps[2], sps[3]);
    return std::string("packetization-mode=1;profile-level-id=") + profile +
           ";sprop-parameter-sets=" + base64(sps) + "," + base64(pps);
}

CannedUnit cannedTone()
{
    // A square wave of 400 Hz; 0xA0 and 0x20 are the same level of either sign.
    constexpr std::size_t samples = 320;
    Bytes tone(samples);
    for (std::size_t i = 0; i < samples; ++i)
    {
        tone[i] = i / 10 % 2 == 0 ? 0xA0 : 0x20;
    }
    CannedUnit unit;
    addPacket(unit, 0, {}, tone.data(), tone.size());
    return unit;
}

}  // namespace rtsporigin

#include "refhost/ingest/client/CameraDescription.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "refhost/base/Decimal.h"
#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

constexpr int maxPayloadType = 127;
constexpr int maxClockRate = 1'000'000'000;
constexpr int maxChannels = 255;

/// Payload types whose meaning needs no attribute (RFC 3551, section 6).
struct StaticType
{
    int payloadType;
    const char* encodingName;
    int clockRate;
    int channels;
};

constexpr StaticType staticTypes[] = {
    {0, "PCMU", 8000, 1},   {3, "GSM", 8000, 1},    {4, "G723", 8000, 1},  {5, "DVI4", 8000, 1},
    {6, "DVI4", 16000, 1},  {7, "LPC", 8000, 1},    {8, "PCMA", 8000, 1},  {9, "G722", 8000, 1},
    {10, "L16", 44100, 2},  {11, "L16", 44100, 1},  {14, "MPA", 90000, 1}, {18, "G729", 8000, 1},
    {26, "JPEG", 90000, 1}, {31, "H261", 90000, 1}, {32, "MPV", 90000, 1}, {33, "MP2T", 90000, 1},
    {34, "H263", 90000, 1},
};

std::string_view trimmed(std::string_view text)
{
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\0'; };
    while (!text.empty() && isSpace(text.front()))
    {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(text.back()))
    {
        text.remove_suffix(1);
    }
    return text;
}

/// Cuts off what stands before the first `separator`, and that.
std::string_view takeUntil(std::string_view& text, char separator)
{
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return trimmed(part);
}

/// Cuts off the first word.
std::string_view takeWord(std::string_view& text)
{
    text = trimmed(text);
    const std::size_t end = std::min(text.find_first_of(" \t"), text.size());
    const std::string_view word = text.substr(0, end);
    text = trimmed(text.substr(end));
    return word;
}

/// A track while its lines are read.
struct Media
{
    CameraTrack track;
    std::string_view control;
    bool known = false;  // what the payload type means
};

/// Of an m= line: "video 0 RTP/AVP 96 97".
std::optional<Media> mediaOf(std::string_view value)
{
    Media media;
    const std::string_view kind = takeWord(value);
    if (equalsIgnoringCase(kind, "video"))
    {
        media.track.kind = MediaKind::video;
    }
    else if (equalsIgnoringCase(kind, "audio"))
    {
        media.track.kind = MediaKind::audio;
    }
    takeWord(value);  // port
    takeWord(value);  // profile
    const auto payloadType = parseDecimal<int>(takeWord(value), maxPayloadType);
    if (!payloadType)
    {
        return std::nullopt;
    }
    media.track.payloadType = *payloadType;
    const auto* const found =
        std::find_if(std::begin(staticTypes), std::end(staticTypes),
                     [&](const StaticType& type) { return type.payloadType == *payloadType; });
    if (found != std::end(staticTypes))
    {
        media.track.encodingName = found->encodingName;
        media.track.clockRate = found->clockRate;
        media.track.channels = found->channels;
        media.known = true;
    }
    return media;
}

/// Of "96 H264/90000" or "97 MPEG4-GENERIC/48000/2".
void readRtpMap(std::string_view value, Media& media)
{
    if (parseDecimal<int>(takeWord(value)) != media.track.payloadType)
    {
        return;
    }
    const std::string_view name = takeUntil(value, '/');
    const auto rate = parseDecimal<int>(takeUntil(value, '/'), 1, maxClockRate);
    if (name.empty() || !rate)
    {
        return;
    }
    media.track.encodingName = name;
    media.track.clockRate = *rate;
    media.track.channels = std::clamp(leadingDecimal<int>(trimmed(value)).value_or(1), 1, maxChannels);
    media.known = true;
}

/// Of "96 packetization-mode=1; sprop-parameter-sets=Z0IA,aM4=".
void readFormat(std::string_view value, Media& media)
{
    if (parseDecimal<int>(takeWord(value)) != media.track.payloadType)
    {
        return;
    }
    auto& parameters = media.track.formatParameters;
    while (!value.empty() && parameters.size() < CameraDescription::maxParameters)
    {
        std::string_view parameter = takeUntil(value, ';');
        const std::string name = lowerCase(takeUntil(parameter, '='));
        if (!name.empty())
        {
            parameters.emplace(name, trimmed(parameter));
        }
    }
}

void readAttribute(std::string_view value, Media& media)
{
    const std::string name = lowerCase(takeUntil(value, ':'));
    if (name == "rtpmap")
    {
        readRtpMap(value, media);
    }
    else if (name == "fmtp")
    {
        readFormat(value, media);
    }
    else if (name == "control")
    {
        media.control = trimmed(value);
    }
    else if (name == "sendonly")
    {
        media.track.backChannel = true;
    }
}

}  // namespace

CameraDescription CameraDescription::read(std::string_view text, const CameraUrl& url,
                                          const std::string& base)
{
    std::vector<Media> all;
    std::string_view control;
    bool skipping = false;  // a track that is left out
    while (!text.empty())
    {
        const std::string_view line = takeUntil(text, '\n');
        if (line.size() < 2 || line[1] != '=')
        {
            continue;
        }
        const std::string_view value = line.substr(2);
        if (lowerCase(line[0]) == 'm')
        {
            std::optional<Media> media = all.size() < maxTracks ? mediaOf(value) : std::nullopt;
            skipping = !media;
            if (media)
            {
                all.push_back(std::move(*media));
            }
        }
        else if (lowerCase(line[0]) == 'a' && !skipping)
        {
            Media whole;
            readAttribute(value, all.empty() ? whole : all.back());
            control = all.empty() && !whole.control.empty() ? whole.control : control;
        }
    }
    CameraDescription description;
    const std::string authority = url.authority();
    description.control = authority + CameraUrl::controlTarget(base, control);
    for (Media& media : all)
    {
        if (media.known && media.control.size() <= CameraUrl::maxSize)
        {
            media.track.control = authority + CameraUrl::controlTarget(base, media.control);
            description.tracks.push_back(std::move(media.track));
        }
    }
    return description;
}

}  // namespace refhost

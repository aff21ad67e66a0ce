#include "refhost/talkback/TalkDecoder.h"

#include <string>

#include "refhost/base/Hex.h"
#include "refhost/media/Codec.h"
#include "refhost/talkback/ConvertingDecoder.h"
#include "refhost/talkback/LibavDecoder.h"

namespace refhost
{
namespace
{

constexpr int maxChannels = 8;
constexpr int highestRate = 192000;

// The bytes of "config=<hex>" in format parameters; empty when missing or malformed.
std::string codecData(const std::string& parameters)
{
    const std::string key = "config=";
    std::size_t begin = parameters.find(key);
    while (begin != std::string::npos && begin > 0 && parameters[begin - 1] != ';' &&
           parameters[begin - 1] != ' ')
    {
        begin = parameters.find(key, begin + 1);
    }
    if (begin == std::string::npos)
    {
        return {};
    }
    begin += key.size();
    const std::size_t end = parameters.find_first_of("; \t", begin);
    const std::string hex = parameters.substr(begin, end == std::string::npos ? end : end - begin);
    return bytesOfHex(hex).value_or("");
}

}  // namespace

bool TalkDecoder::supports(const SubMediaInfo& track)
{
    if (track.channels < 1 || track.channels > maxChannels || track.clockRate < 1 ||
        track.clockRate > highestRate)
    {
        return false;
    }
    const std::optional<Codec> codec = codecEncodedAs(track.encodingName);
    return codec && infoOf(*codec).kind == MediaKind::audio &&
           (!infoOf(*codec).needsCodecData || !codecData(track.formatParameters).empty());
}

std::unique_ptr<TalkDecoder> TalkDecoder::make(const SubMediaInfo& track, const PcmFormat& format)
{
    if (!supports(track))
    {
        return nullptr;
    }
    std::unique_ptr<FrameDecoder> decoder =
        LibavDecoder::make(*codecEncodedAs(track.encodingName), codecData(track.formatParameters),
                           {track.clockRate, track.channels});
    if (!decoder)
    {
        return nullptr;
    }
    return std::make_unique<ConvertingDecoder>(std::move(decoder), track.clockRate, format);
}

}  // namespace refhost

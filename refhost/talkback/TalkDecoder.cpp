#include "refhost/talkback/TalkDecoder.h"

#include <string>

#include "refhost/base/Hex.h"
#include "refhost/talkback/AacDecoder.h"
#include "refhost/talkback/ConvertingDecoder.h"
#include "refhost/talkback/G711Decoder.h"

namespace refhost
{
namespace
{

constexpr int mostChannels = 8;
constexpr int highestRate = 192000;

// The bytes of "config=<hex>" among format parameters; empty when there is none or it is malformed.
std::string audioSpecificConfig(const std::string& parameters)
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

std::unique_ptr<FrameDecoder> makeCodec(const SubMediaInfo& track)
{
    const PcmFormat recorded{track.clockRate, track.channels};
    if (track.encodingName == "PCMU")
    {
        return std::make_unique<G711Decoder>(G711Decoder::Law::mu, recorded);
    }
    if (track.encodingName == "PCMA")
    {
        return std::make_unique<G711Decoder>(G711Decoder::Law::a, recorded);
    }
    if (track.encodingName == "MPEG4-GENERIC")
    {
        return AacDecoder::make(audioSpecificConfig(track.formatParameters), recorded);
    }
    return nullptr;
}

}  // namespace

bool TalkDecoder::supports(const SubMediaInfo& track)
{
    if (track.channels < 1 || track.channels > mostChannels || track.clockRate < 1 ||
        track.clockRate > highestRate)
    {
        return false;
    }
    return track.encodingName == "PCMU" || track.encodingName == "PCMA" ||
           (track.encodingName == "MPEG4-GENERIC" && !audioSpecificConfig(track.formatParameters).empty());
}

std::unique_ptr<TalkDecoder> TalkDecoder::make(const SubMediaInfo& track, const PcmFormat& format)
{
    if (!supports(track))
    {
        return nullptr;
    }
    std::unique_ptr<FrameDecoder> codec = makeCodec(track);
    if (!codec)
    {
        return nullptr;
    }
    return std::make_unique<ConvertingDecoder>(std::move(codec), track.clockRate, format);
}

}  // namespace refhost

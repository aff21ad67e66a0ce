#include "refhost/media/BackChannel.h"

namespace refhost
{
namespace
{

constexpr int pcmuPayloadType = 0;
constexpr int pcmaPayloadType = 8;
constexpr int aacPayloadType = 97;
/// AudioSpecificConfig 1408: AAC-LC, 16000 Hz, one channel. Profile 15 is AAC Profile, level 1 (RFC 3640,
/// section 4.1, with ISO 14496-1).
constexpr const char* aacParameters =
    "streamtype=5;profile-level-id=15;mode=AAC-hbr;config=1408;sizelength=13;indexlength=3;"
    "indexdeltalength=3";

}  // namespace

std::optional<SubMediaInfo> backChannelOf(const std::string& codec)
{
    SubMediaInfo track;
    track.trackId = "trackID=talk";
    track.mediaType = "audio";
    track.channels = 1;
    track.clockRate = 8000;
    track.bitRate = 64;
    track.setAudioBackInfoFlag(true);
    if (codec == "pcmu")
    {
        track.encodingName = "PCMU";
        track.payloadType = pcmuPayloadType;
    }
    else if (codec == "pcma")
    {
        track.encodingName = "PCMA";
        track.payloadType = pcmaPayloadType;
    }
    else if (codec == "aac")
    {
        track.encodingName = "MPEG4-GENERIC";
        track.payloadType = aacPayloadType;
        track.clockRate = 16000;
        track.formatParameters = aacParameters;
    }
    else
    {
        return std::nullopt;
    }
    return track;
}

}  // namespace refhost

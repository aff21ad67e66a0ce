#include "refhost/media/BackChannel.h"

#include <algorithm>

namespace refhost
{

std::optional<SubMediaInfo> backChannelOf(const std::optional<Codec>& codec)
{
    if (!codec || infoOf(*codec).talkBackRate == 0)
    {
        return std::nullopt;
    }
    const CodecInfo& info = infoOf(*codec);
    SubMediaInfo track;
    track.trackId = "trackID=talk";
    track.mediaType = "audio";
    track.encodingName = info.encodingName;
    track.payloadType = info.payloadType;
    track.clockRate = info.talkBackRate;
    track.channels = std::max(info.channels, 1);
    track.bitRate = info.encodedBitRate.value_or(0);
    track.formatParameters = info.talkBackParameters;
    track.setAudioBackInfoFlag(true);
    return track;
}

}  // namespace refhost

#include "refhost/rtsp/session/DescribedTracks.h"

#include "hostapi/description/MediaInfo.h"
#include "refhost/rtsp/message/StatusMap.h"

namespace refhost
{

bool DescribedTracks::find(const std::string& trackId, SubMediaInfo& out) const
{
    MediaInfo info;
    return controller_->getMediaInfo(info) == 0 && info.getSubMediaInfo(trackId, out);
}

RtspStatus DescribedTracks::onlySent(std::string& trackId) const
{
    MediaInfo info;
    const int code = controller_->getMediaInfo(info);
    if (code != 0)
    {
        return StatusMap::ofCode(StatusMap::Step::control, code);
    }
    int sent = 0;
    for (const SubMediaInfo& track : info.getAllSubMediaInfo())
    {
        if (!track.getAudioBackInfoFlag())
        {
            trackId = track.trackId;
            ++sent;
        }
    }
    return sent == 1 ? rtspOk : rtspAggregateNotAllowed;
}

}  // namespace refhost

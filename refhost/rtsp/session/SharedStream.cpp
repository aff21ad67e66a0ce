#include "refhost/rtsp/session/SharedStream.h"

#include <algorithm>

#include "hostapi/description/GeneralSessionInfo.h"
#include "hostapi/description/MediaInfo.h"

namespace refhost
{

SharedStream SharedStream::of(SafePointer<IRTSPController>& controller)
{
    SharedStream shared;
    GeneralSessionInfo session;
    if (controller->getSessionInfo(session) == 0)
    {
        shared.stream = {session.getCameraID(), session.getStreamID()};
    }
    MediaInfo info;
    if (controller->getMediaInfo(info) == 0)
    {
        for (const SubMediaInfo& track : info.getAllSubMediaInfo())
        {
            shared.trackIds.push_back(track.trackId);
        }
    }
    return shared;
}

int SharedStream::numberOf(std::string_view trackId) const
{
    if (trackId.empty())
    {
        return 0;
    }
    const auto found = std::find(trackIds.begin(), trackIds.end(), trackId);
    return found == trackIds.end() ? -1 : static_cast<int>(found - trackIds.begin());
}

}  // namespace refhost

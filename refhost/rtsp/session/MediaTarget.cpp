#include "refhost/rtsp/session/MediaTarget.h"

#include "mediaurl/OrvaneMediaUrl.h"
#include "refhost/description/MulticastMediaUrl.h"

namespace refhost
{

namespace
{

bool parseLive(const MediaRoutes::Route& route, const std::string& presentation, MulticastMediaUrl& url)
{
    return (route.multicast() ? url.parseMulticastMediaUrl(presentation) : url.parseMediaUrl(presentation)) ==
           0;
}

}  // namespace

MediaTarget MediaTarget::of(const MediaRoutes::Route& route, const std::string& presentation)
{
    MediaTarget target;
    target.right = route.recorded ? Right::playback : Right::live;
    MulticastMediaUrl url;
    if (route.recorded ? url.parsePlaybackMediaUrl(presentation) == 0 : parseLive(route, presentation, url))
    {
        target.camera = url.objMediaUrlParam.getCameraID();
    }
    return target;
}

std::optional<std::pair<int, int>> MediaTarget::liveStreamOf(const MediaRoutes::Route& route,
                                                             const std::string& presentation)
{
    MulticastMediaUrl url;
    if (route.recorded || !parseLive(route, presentation, url))
    {
        return std::nullopt;
    }
    return std::pair(url.objMediaUrlParam.getCameraID(), url.objMediaUrlParam.getStreamID());
}

}  // namespace refhost

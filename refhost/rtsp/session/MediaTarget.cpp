#include "refhost/rtsp/session/MediaTarget.h"

#include "mediaurl/OrvaneMediaUrl.h"
#include "refhost/description/MulticastMediaUrl.h"

namespace refhost
{

MediaTarget MediaTarget::of(const MediaRoutes::Route& route, const std::string& presentation)
{
    MediaTarget target;
    target.right = route.recorded ? Right::playback : Right::live;
    MulticastMediaUrl url;
    int status = 0;
    if (route.recorded)
    {
        status = url.parsePlaybackMediaUrl(presentation);
    }
    else
    {
        status =
            route.multicast() ? url.parseMulticastMediaUrl(presentation) : url.parseMediaUrl(presentation);
    }
    if (status == 0)
    {
        target.camera = url.objMediaUrlParam.getCameraID();
    }
    return target;
}

}  // namespace refhost

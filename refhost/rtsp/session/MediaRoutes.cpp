#include "refhost/rtsp/session/MediaRoutes.h"

#include <algorithm>
#include <utility>

namespace refhost
{

void MediaRoutes::add(std::string prefix, const SafePointer<IRTSPControllerFactory>& factory,
                      FirstPacketFunction firstPacket, ReadyFunction ready)
{
    routes_.push_back(
        {std::move(prefix), factory, std::move(ready), std::move(firstPacket), false, false, nullptr});
}

void MediaRoutes::addWithTalkBack(std::string prefix, const SafePointer<IRTSPControllerFactory>& factory,
                                  FirstPacketFunction firstPacket, ReadyFunction ready)
{
    routes_.push_back(
        {std::move(prefix), factory, std::move(ready), std::move(firstPacket), false, true, nullptr});
}

void MediaRoutes::addRecorded(std::string prefix, const SafePointer<IRTSPControllerFactory>& factory,
                              ReadyFunction ready)
{
    routes_.push_back({std::move(prefix), factory, std::move(ready), nullptr, true, false, nullptr});
}

void MediaRoutes::addMulticast(std::string prefix, const SafePointer<IRTSPControllerFactory>& factory,
                               FirstPacketFunction firstPacket, ReadyFunction ready)
{
    routes_.push_back({std::move(prefix), factory, std::move(ready), std::move(firstPacket), false, false,
                       std::make_shared<std::mutex>()});
}

bool MediaRoutes::multicast() const
{
    return std::any_of(routes_.begin(), routes_.end(), [](const Route& route) { return route.multicast(); });
}

const MediaRoutes::Route* MediaRoutes::find(std::string_view presentation) const
{
    for (const Route& route : routes_)
    {
        const std::size_t size = route.prefix.size();
        if (presentation.size() > size && presentation.substr(0, size) == route.prefix &&
            presentation[size] == '/')
        {
            return &route;
        }
    }
    return nullptr;
}

}  // namespace refhost

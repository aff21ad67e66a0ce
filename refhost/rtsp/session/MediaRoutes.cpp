#include "refhost/rtsp/session/MediaRoutes.h"

#include <algorithm>

namespace refhost
{

void MediaRoutes::add(const Route& route)
{
    routes_.push_back(route);
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

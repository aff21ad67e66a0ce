#pragma once

#include <string>

/// Of a host whose operations are const only where the library asks for that.
class TrackParam
{
public:
    void setTrackID(const std::string& id);
    std::string getTrackID();
    void setMeidaUrl(const std::string& url);
};

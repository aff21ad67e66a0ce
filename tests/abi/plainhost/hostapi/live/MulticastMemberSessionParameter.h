#pragma once

#include <string>

/// Of a host whose operations are const only where the library asks for that.
class MulticastMemberSessionParameter
{
public:
    void setMemberSessionId(const std::string& id);
};

#pragma once

#include <string>

#include "hostapi/base/HostExport.h"

/// A device's member of a multicast session.
class OV_HOST_API MulticastMemberSessionParameter
{
public:
    MulticastMemberSessionParameter();
    ~MulticastMemberSessionParameter();
    void setMemberSessionId(const std::string& id);

private:
    friend class MulticastSessionParameter;
    std::string memberSessionId_;
};

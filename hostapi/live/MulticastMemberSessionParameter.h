#pragma once

#include <string>

/// One RTSP session that takes part in a multicast session. A plain value.
class MulticastMemberSessionParameter
{
public:
    /// \param id  the RTSP session's id
    void setMemberSessionId(const std::string& id)
    {
        memberSessionId_ = id;
    }

    /// Valid as long as the record.
    const std::string& getMemberSessionId() const
    {
        return memberSessionId_;
    }

private:
    std::string memberSessionId_;
};

#pragma once

#include <string>

#include "mediaurl/OrvaneMediaUrl.h"

namespace refhost
{

/// The device's URL syntax with a multicast form, which it has none of its own:
///
///     multicast:  orv/multicast/<camera>/<stream>
///
/// Numbers are read as in the live form, and what stands in front of the prefix is ignored likewise.
/// Registered under a platform type of its own, so that the device's codec keeps its number.
class MulticastMediaUrl : public OrvaneMediaUrl
{
public:
    static constexpr int thirdPlatType = 2;

    /// The prefix is "orv/multicast" afterwards and the multicast flag set in any case.
    /// \returns 0, or -8 with camera and stream left as they were
    int parseMulticastMediaUrl(const std::string& url) override;
    /// "orv/multicast/" with camera and stream.
    std::string toMulticastMediaUrl() override;

    /// Always `thirdPlatType`.
    int getThirdPlatType() override;
};

}  // namespace refhost

#pragma once

#include <string>

#include "mediaurl/OrvaneMediaUrl.h"

namespace refhost
{

/// The device's URL syntax extended by a multicast form:
///
///     multicast:  orv/multicast/<camera>/<stream>
///
/// Numbers are parsed as in the live form, and text before the prefix is ignored likewise. Registered under
/// its own platform type, so that the device's codec keeps its number.
class MulticastMediaUrl : public OrvaneMediaUrl
{
public:
    static constexpr int thirdPlatType = 2;

    /// Parses a URL; in any case sets the prefix "orv/multicast" and the multicast flag.
    /// \returns 0, or -8 with camera and stream unchanged
    int parseMulticastMediaUrl(const std::string& url) override;
    /// "orv/multicast/<camera>/<stream>".
    std::string toMulticastMediaUrl() override;

    /// Always `thirdPlatType`.
    int getThirdPlatType() override;
};

}  // namespace refhost

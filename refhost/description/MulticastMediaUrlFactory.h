#pragma once
// Tested by tests/refhost/description/MulticastMediaUrl_test.cpp.

#include "mediaurl/IMediaUrlFactory.h"

namespace refhost
{

/// Creates codecs of URLs with the multicast form. Threads: any; no state.
class MulticastMediaUrlFactory : public IMediaUrlFactory
{
public:
    /// \param[out] codec  a handle to a new MulticastMediaUrl, a separate one for each call
    /// \returns 0
    int createMediaUrl(SafePointer<IMediaUrl>& codec) override;
};

}  // namespace refhost

#pragma once

#include "hostapi/base/OVMutex.h"
#include "mediaurl/IMediaUrlFactory.h"
#include "support/Export.h"

/// Creates codecs of the device's own URL syntax. The host registers one in MediaUrlFactoryMap.
/// Threads: any; one codec is created at a time.
class OV_EXPORT OrvaneMediaUrlFactory : public IMediaUrlFactory
{
public:
    OrvaneMediaUrlFactory();
    ~OrvaneMediaUrlFactory() noexcept(false) override;
    OrvaneMediaUrlFactory(const OrvaneMediaUrlFactory&) = delete;
    OrvaneMediaUrlFactory& operator=(const OrvaneMediaUrlFactory&) = delete;

    /// \param[out] codec  a handle to a new OrvaneMediaUrl, a separate one for each call
    /// \returns 0
    int createMediaUrl(SafePointer<IMediaUrl>& codec) override;

private:
    OVMutex mutex;
};

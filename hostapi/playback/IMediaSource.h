#pragma once

#include "hostapi/base/HostExport.h"
#include "hostapi/description/RecordInfo.h"

/// Where a playback dispatcher takes its media from. Held through SafePointer<IMediaSource>.
///
/// The library makes and configures a source and hands it over; it calls none of these operations.
class OV_HOST_API IMediaSource
{
public:
    virtual ~IMediaSource() noexcept(false);
    IMediaSource(const IMediaSource&) = delete;
    IMediaSource& operator=(const IMediaSource&) = delete;

    /// Which recording is read.
    virtual RecordInfo getRecordInfo() const = 0;

protected:
    IMediaSource();
};

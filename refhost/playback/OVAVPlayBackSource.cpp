#include "hostapi/playback/OVAVPlayBackSource.h"

/// This host's recorded media depends on the record alone.
struct OVAVPlayBackSource::Impl
{
    RecordInfo record;
};

OVAVPlayBackSource::OVAVPlayBackSource() : impl_(new Impl) {}

OVAVPlayBackSource::~OVAVPlayBackSource() noexcept(false)
{
    delete impl_;
}

void OVAVPlayBackSource::setDeviceInfo(const DeviceInfoEx&) {}

void OVAVPlayBackSource::setDeviceAbility(const DeviceExAbility&) {}

void OVAVPlayBackSource::setRecordInfo(const RecordInfo& record)
{
    impl_->record = record;
}

void OVAVPlayBackSource::setThirdPlatType(int) {}

RecordInfo OVAVPlayBackSource::getRecordInfo() const
{
    return impl_->record;
}

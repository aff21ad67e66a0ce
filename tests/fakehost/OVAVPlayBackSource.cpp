#include "hostapi/playback/OVAVPlayBackSource.h"

#include "tests/fakehost/FakeDescription.h"
#include "tests/fakehost/FakeHost.h"

namespace
{

const char className[] = "OVAVPlayBackSource";

void log(const char* operation, const std::string& arguments)
{
    FakeHost::instance().called(className, 0, operation, arguments);
}

}  // namespace

struct OVAVPlayBackSource::Impl
{
    RecordInfo record;
};

OVAVPlayBackSource::OVAVPlayBackSource() : impl_(new Impl)
{
    FakeHost::instance().born(className);
}

OVAVPlayBackSource::~OVAVPlayBackSource() noexcept(false)
{
    delete impl_;
    FakeHost::instance().died(className);
}

void OVAVPlayBackSource::setDeviceInfo(const DeviceInfoEx& info)
{
    log("setDeviceInfo", info.getDeviceID());
}

void OVAVPlayBackSource::setDeviceAbility(const DeviceExAbility& ability)
{
    log("setDeviceAbility", ability.getAudioBackFlag() ? "true" : "false");
}

void OVAVPlayBackSource::setRecordInfo(const RecordInfo& record)
{
    log("setRecordInfo", FakeDescription::textOf(record));
    impl_->record = record;
}

void OVAVPlayBackSource::setThirdPlatType(int type)
{
    log("setThirdPlatType", std::to_string(type));
}

RecordInfo OVAVPlayBackSource::getRecordInfo() const
{
    return impl_->record;
}

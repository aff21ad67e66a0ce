#include "hostapi/description/MediaInfoTool.h"

#include "tests/fakehost/FakeDescription.h"
#include "tests/fakehost/FakeHost.h"

struct MediaInfoTool::Impl
{
    DeviceInfoEx device;
    DeviceExAbility ability;
    std::string url;
};

namespace
{

void log(const char* operation, const std::string& arguments)
{
    FakeHost::instance().called("MediaInfoTool", 0, operation, arguments);
}

std::string flag(bool value)
{
    return value ? "true" : "false";
}

}  // namespace

MediaInfoTool::MediaInfoTool() : impl_(new Impl)
{
    FakeHost::instance().born("MediaInfoTool");
}

MediaInfoTool::~MediaInfoTool()
{
    delete impl_;
    FakeHost::instance().died("MediaInfoTool");
}

void MediaInfoTool::setDeviceInfoEx(const DeviceInfoEx& info)
{
    log("setDeviceInfoEx", info.getDeviceID());
    impl_->device = info;
}

void MediaInfoTool::setDeviceExAbility(const DeviceExAbility& ability)
{
    log("setDeviceExAbility", flag(ability.getAudioBackFlag()));
    impl_->ability = ability;
}

void MediaInfoTool::setMediaUrl(const std::string& url)
{
    log("setMediaUrl", url);
    impl_->url = url;
}

void MediaInfoTool::setThirdPlatType(int type)
{
    log("setThirdPlatType", std::to_string(type));
}

int MediaInfoTool::createMediaInfo(int cameraId, int streamId, MediaInfo& out, bool mediaInfoFlag)
{
    const FakeHost::Outcome outcome = FakeHost::instance().outcomeOf(
        "MediaInfoTool", 0, "createMediaInfo",
        std::to_string(cameraId) + ", " + std::to_string(streamId) + ", " + flag(mediaInfoFlag), 0);
    if (outcome.result == 0)
    {
        out = FakeDescription::presentation(mediaInfoFlag && impl_->ability.getAudioBackFlag());
        out.mediaUrl = impl_->url;
    }
    return outcome.result;
}

int MediaInfoTool::createPlaybackMediaInfo(const RecordInfo& record, MediaInfo& out)
{
    const FakeHost::Outcome outcome = FakeHost::instance().outcomeOf(
        "MediaInfoTool", 0, "createPlaybackMediaInfo", FakeDescription::textOf(record), 0);
    if (outcome.result == 0)
    {
        out = FakeDescription::presentation(false);
        out.mediaUrl = impl_->url;
        out.recordBeginTime = static_cast<std::int64_t>(record.getRecordBeginTime()) * 1'000'000'000;
        out.recordSeconds =
            static_cast<double>(record.getRecordEndTime()) - static_cast<double>(record.getRecordBeginTime());
    }
    return outcome.result;
}

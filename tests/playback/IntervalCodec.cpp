#include "tests/playback/IntervalCodec.h"

#include <utility>

#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/FakePlaybackTracks.h"

IntervalCodec::IntervalCodec(double begin, double end) : begin_(begin), end_(end) {}

int IntervalCodec::parsePlaybackMediaUrl(const std::string& url)
{
    const int result = FakeHost::instance().outcomeOf("IMediaUrl", 0, "parsePlaybackMediaUrl", url, 0).result;
    if (result == 0)
    {
        objMediaUrlParam.setDeviceId("parsed");
        objMediaUrlParam.setCameraID(5);
        objMediaUrlParam.setRecordBeginTime(begin_);
        objMediaUrlParam.setRecordEndTime(end_);
    }
    return result;
}

std::string IntervalCodec::toPlayBackMediaUrl()
{
    return "recorded " + objMediaUrlParam.getDeviceId() + " " +
           std::to_string(objMediaUrlParam.getCameraID()) + " " +
           FakePlaybackTracks::textOf(
               {objMediaUrlParam.getRecordBeginTime(), objMediaUrlParam.getRecordEndTime()});
}

IntervalCodecFactory::IntervalCodecFactory(double begin, double end, std::function<void()> onCreate)
    : begin_(begin), end_(end), onCreate_(std::move(onCreate))
{
}

IntervalCodecFactory::~IntervalCodecFactory() noexcept(false) = default;

int IntervalCodecFactory::createMediaUrl(SafePointer<IMediaUrl>& codec)
{
    if (onCreate_)
    {
        onCreate_();
    }
    const int result = FakeHost::instance().outcomeOf("IMediaUrlFactory", 0, "createMediaUrl", 0).result;
    if (result == 0)
    {
        codec = SafePointer<IMediaUrl>(new IntervalCodec(begin_, end_));
    }
    return result;
}

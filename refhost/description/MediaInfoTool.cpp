#include "hostapi/description/MediaInfoTool.h"

#include <utility>
#include <vector>

#include "refhost/base/HostStatus.h"
#include "refhost/media/Device.h"
#include "refhost/playback/PlaybackService.h"

/// This host's description depends only on the stream; of the settings only the URL is kept.
struct MediaInfoTool::Impl
{
    std::string mediaUrl;
};

MediaInfoTool::MediaInfoTool() : impl_(new Impl) {}

MediaInfoTool::~MediaInfoTool()
{
    delete impl_;
}

void MediaInfoTool::setDeviceInfoEx(const DeviceInfoEx&) {}

void MediaInfoTool::setDeviceExAbility(const DeviceExAbility&) {}

void MediaInfoTool::setMediaUrl(const std::string& url)
{
    impl_->mediaUrl = url;
}

void MediaInfoTool::setThirdPlatType(int) {}

int MediaInfoTool::createMediaInfo(int cameraId, int streamId, MediaInfo& out, bool mediaInfoFlag)
{
    const std::shared_ptr<refhost::StreamDirectory> streams = refhost::Device::streams();
    const std::shared_ptr<refhost::StreamSource> stream =
        streams ? streams->find(cameraId, streamId) : nullptr;
    if (!stream)
    {
        return refhost::hostStreamUnknown;
    }
    std::vector<SubMediaInfo> tracks;
    switch (stream->describe(tracks))
    {
        case refhost::StreamSource::Description::ready:
            break;
        case refhost::StreamSource::Description::starting:
            return refhost::hostStreamNotReady;
        case refhost::StreamSource::Description::failed:
            return refhost::hostStreamFailed;
    }
    MediaInfo described;
    described.mediaUrl = impl_->mediaUrl;
    for (const SubMediaInfo& track : tracks)
    {
        described.addSubMediaInfo(track);
    }
    SubMediaInfo backChannel;
    if (mediaInfoFlag && streams->describeBackChannel(cameraId, backChannel))
    {
        described.addSubMediaInfo(backChannel);
    }
    out = std::move(described);
    return 0;
}

int MediaInfoTool::createPlaybackMediaInfo(const RecordInfo& record, MediaInfo& out)
{
    if (refhost::Device::recordingsExpected())
    {
        return refhost::hostStreamNotReady;
    }
    MediaInfo described;
    const int status = refhost::PlaybackService::instance().catalog().describe(record, described);
    if (status == 0)
    {
        described.mediaUrl = impl_->mediaUrl;
        out = std::move(described);
    }
    return status;
}

#include "refhost/capture/MediaSource.h"

#include "refhost/capture/CaptureSource.h"
#include "refhost/capture/FileSource.h"
#include "refhost/capture/LaunchSource.h"
#include "refhost/capture/RtspSource.h"
#include "refhost/capture/RtspTcpSource.h"
#include "refhost/capture/SyntheticSource.h"

namespace refhost
{

namespace
{

std::unique_ptr<MediaSource> makeRtspSource(const StreamConfig& config, unsigned attempt, MediaSink& sink)
{
    const bool encrypted = config.source.location.rfind("rtsps://", 0) == 0;
    const bool tcp = attempt % 2 == 0;
    if (tcp && !encrypted)
    {
        return std::make_unique<RtspTcpSource>(config, sink);
    }
    return std::make_unique<RtspSource>(config, tcp ? RtspSource::Transport::tcp : RtspSource::Transport::udp,
                                        sink);
}

}  // namespace

std::unique_ptr<MediaSource> MediaSource::make(const StreamConfig& config, const std::string& title,
                                               unsigned attempt, MediaSink& sink)
{
    switch (config.source.kind)
    {
        case SourceConfig::Kind::synthetic:
            return std::make_unique<SyntheticSource>(config, title, sink);
        case SourceConfig::Kind::file:
            return std::make_unique<FileSource>(config, sink);
        case SourceConfig::Kind::v4l2:
            return std::make_unique<CaptureSource>(config, sink);
        case SourceConfig::Kind::rtsp:
        case SourceConfig::Kind::rtspGst:
            return makeRtspSource(config, attempt, sink);
        case SourceConfig::Kind::launch:
            return std::make_unique<LaunchSource>(config, sink);
    }
    return nullptr;
}

}  // namespace refhost

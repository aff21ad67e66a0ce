#include "refhost/playback/PlaybackService.h"

#include <chrono>
#include <utility>

#include "refhost/media/Device.h"
#include "refhost/playback/RecordedSource.h"

namespace refhost
{
namespace
{

std::shared_ptr<const RecordingDirectory> recordedMedia()
{
    const auto index = Device::recordings();
    return index ? std::make_shared<IndexedRecordings>(index) : nullptr;
}

WorkPool::Options poolOptions(const PlaybackSettings& settings, unsigned threads)
{
    WorkPool::Options options;
    options.threads = threads;
    options.grain = std::chrono::milliseconds(4);
    options.name = "playback";
    options.clock = settings.clock;
    return options;
}

}  // namespace

PlaybackService& PlaybackService::instance()
{
    // Never destroyed: connections may be served until the very end of the process.
    static PlaybackService* const service = new PlaybackService(PlaybackSettings(), recordedMedia, workers);
    return *service;
}

PlaybackService::PlaybackService(const PlaybackSettings& settings, RecordedMedia recordings, unsigned threads)
    : settings_(settings),
      recordings_(std::move(recordings)),
      pool_(poolOptions(settings, threads)),
      catalog_(std::make_shared<PlaybackCatalog>(recordings_, pool_, *settings.clock))
{
}

PlaybackService::~PlaybackService()
{
    stop();
}

std::shared_ptr<PlaybackSession> PlaybackService::makeSession(const RecordInfo& record,
                                                              const PlaybackSettings& settings,
                                                              std::optional<WallTime> start)
{
    const WallTime begin = wallTimeOfUnix(static_cast<std::int64_t>(record.getRecordBeginTime()));
    const WallTime end = wallTimeOfUnix(static_cast<std::int64_t>(record.getRecordEndTime()));
    auto source = std::make_unique<RecordedSource>(
        recordings_(), *settings_.clock, RecordedSource::Interval{record.getCameraId(), begin, end});
    const PlaybackSession::Interval interval{begin, end, start.value_or(begin)};
    return std::make_shared<PlaybackSession>(interval, std::move(source), pool_, settings);
}

PlaybackCatalog& PlaybackService::catalog()
{
    return *catalog_;
}

void PlaybackService::stop()
{
    pool_.close();
}

}  // namespace refhost

#include "refhost/recording/RecordingControl.h"

#include <algorithm>
#include <iterator>

namespace refhost
{
namespace
{

template <typename Value>
void eraseOthers(std::map<int, Value>& of, const std::vector<CameraConfig>& cameras)
{
    for (auto entry = of.begin(); entry != of.end();)
    {
        const bool known = std::any_of(cameras.begin(), cameras.end(),
                                       [&](const CameraConfig& camera) { return camera.id == entry->first; });
        entry = known ? std::next(entry) : of.erase(entry);
    }
}

}  // namespace

RecordMode RecordingControl::modeOf(Switch position, RecordMode configured)
{
    if (position == Switch::automatic || configured == RecordMode::never)
    {
        return configured;
    }
    return position == Switch::on ? RecordMode::always : RecordMode::never;
}

RecordingControl::Switch RecordingControl::switchOf(int camera) const
{
    const MutexLock guard(mutex_);
    const auto found = switches_.find(camera);
    return found == switches_.end() ? Switch::automatic : found->second;
}

void RecordingControl::setSwitch(int camera, Switch position)
{
    std::function<void()> changed;
    {
        const MutexLock guard(mutex_);
        switches_[camera] = position;
        changed = changed_;
    }
    if (changed)
    {
        changed();
    }
}

std::vector<std::shared_ptr<Recorder>> RecordingControl::recordersOf(int camera) const
{
    std::vector<std::shared_ptr<Recorder>> found;
    const MutexLock guard(mutex_);
    std::copy_if(recorders_.begin(), recorders_.end(), std::back_inserter(found),
                 [camera](const std::shared_ptr<Recorder>& recorder)
                 { return recorder->stream().cameraId == camera; });
    return found;
}

std::optional<Recorder::State> RecordingControl::state(int camera, int stream) const
{
    for (const std::shared_ptr<Recorder>& recorder : recordersOf(camera))
    {
        if (recorder->records(camera, stream))
        {
            return recorder->state();
        }
    }
    return std::nullopt;
}

std::vector<std::pair<int, Recorder::State>> RecordingControl::noteEvent(int camera,
                                                                         const std::optional<Duration>& after)
{
    std::vector<std::pair<int, Recorder::State>> states;
    for (const std::shared_ptr<Recorder>& recorder : recordersOf(camera))
    {
        states.emplace_back(recorder->stream().streamId, recorder->noteEvent(after));
    }
    std::sort(states.begin(), states.end(),
              [](const auto& one, const auto& other) { return one.first < other.first; });
    const MutexLock guard(mutex_);
    events_[camera] += states.empty() ? 0 : 1;
    return states;
}

std::map<int, std::uint64_t> RecordingControl::events() const
{
    const MutexLock guard(mutex_);
    return events_;
}

void RecordingControl::onSwitch(std::function<void()> changed)
{
    const MutexLock guard(mutex_);
    changed_ = std::move(changed);
}

void RecordingControl::publish(std::vector<std::shared_ptr<Recorder>> recorders)
{
    const MutexLock guard(mutex_);
    recorders_.swap(recorders);
}

void RecordingControl::keepOnly(const std::vector<CameraConfig>& cameras)
{
    const MutexLock guard(mutex_);
    eraseOthers(switches_, cameras);
    eraseOthers(events_, cameras);
}

}  // namespace refhost

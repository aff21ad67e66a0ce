#pragma once
// Tested by tests/refhost/recording/RecordingService_test.cpp.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/config/Config.h"
#include "refhost/recording/Recorder.h"

namespace refhost
{

/// What users change of the recording of cameras while it runs: events, and switching it on and off.
///
/// A switch holds until it is set again or the server ends; from its start on the configuration holds. Streams that are
/// never recorded are not switched on. Threads: any; nothing waits for a disk.
class RecordingControl
{
public:
    enum class Switch
    {
        automatic,  ///< as configured
        on,         ///< always what is recorded on events, too
        off         ///< nothing
    };

    /// What a switch makes of a configured mode.
    static RecordMode modeOf(Switch position, RecordMode configured);

    Switch switchOf(int camera) const;
    /// Has the service apply it soon. Requires: the camera is configured.
    void setSwitch(int camera, Switch position);

    /// The state of a stream's recording; nothing: it is not recorded, or its folder cannot be used.
    std::optional<Recorder::State> state(int camera, int stream) const;
    /// An event of a camera: Recorder::noteEvent() of its streams that are recorded.
    /// \returns these, by number
    std::vector<std::pair<int, Recorder::State>> noteEvent(int camera, const std::optional<Duration>& after);
    /// Number of events so far of each camera that is configured.
    std::map<int, std::uint64_t> events() const;

    // For the service:

    /// \param changed  called when a switch was set, on the thread that set it
    void onSwitch(std::function<void()> changed);
    /// What is being recorded from now on.
    void publish(std::vector<std::shared_ptr<Recorder>> recorders);
    /// Forgets other cameras.
    void keepOnly(const std::vector<CameraConfig>& cameras);

private:
    std::vector<std::shared_ptr<Recorder>> recordersOf(int camera) const;

    mutable Mutex mutex_;
    std::map<int, Switch> switches_ OV_GUARDED_BY(mutex_);
    std::map<int, std::uint64_t> events_ OV_GUARDED_BY(mutex_);
    std::vector<std::shared_ptr<Recorder>> recorders_ OV_GUARDED_BY(mutex_);
    std::function<void()> changed_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "refhost/base/Mutex.h"
#include "refhost/capture/CameraStates.h"
#include "refhost/media/StreamSource.h"
#include "tests/refhost/live/LiveFakes.h"

namespace refhost
{
namespace test
{

/// A stream whose state the test says.
class StatedStream : public FakeSource
{
public:
    StatedStream(CameraStates& states, const CameraStates::Key& key) : row_(states, key, "") {}

    Description describe(std::vector<SubMediaInfo>&) override
    {
        return Description::failed;
    }

    bool isNeeded() const override
    {
        return needed_;
    }

    void restart() override
    {
        ++restarts_;
    }

    void set(CameraState state, bool needed, const std::string& error = "")
    {
        CameraStatus status;
        status.state = state;
        status.lastError = error;
        row_.set(status);
        needed_ = needed;
    }

    int restarts() const
    {
        return restarts_;
    }

private:
    CameraStates::Row row_;
    std::atomic<bool> needed_{false};
    std::atomic<int> restarts_{0};
};

/// Every stream is there.
class StatedStreams : public StreamDirectory
{
public:
    std::shared_ptr<StreamSource> find(int cameraId, int streamId) override
    {
        const MutexLock guard(mutex_);
        auto& stream = streams_[{cameraId, streamId}];
        stream = stream == nullptr
                     ? std::make_shared<StatedStream>(states, CameraStates::Key(cameraId, streamId))
                     : stream;
        return stream;
    }

    StatedStream& at(int cameraId, int streamId)
    {
        return static_cast<StatedStream&>(*find(cameraId, streamId));
    }

    CameraStates states;

private:
    Mutex mutex_;
    std::map<std::pair<int, int>, std::shared_ptr<StatedStream>> streams_ OV_GUARDED_BY(mutex_);
};

}  // namespace test
}  // namespace refhost

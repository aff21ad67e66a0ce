#pragma once
// Tested by tests/refhost/ingest/CameraRelay_test.cpp.

#include <cstdint>
#include <memory>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/capture/SourceRun.h"
#include "refhost/ingest/CameraPauses.h"
#include "refhost/net/StreamConnector.h"
#include "refhost/threads/EventLoop.h"

namespace refhost
{

/// Another camera that is read over RTSP on an event loop, without a thread of its own. What it sends is passed
/// on as it came, nothing is decoded.
///
/// A camera whose tracks the stream cannot send as they are, or that sends neither over TCP nor UDP, ends the run
/// with mayWorkByAnotherTransport().
class IngestRun : public SourceRun
{
public:
    /// \param loop       reads the camera; it and `pauses` outlive the run, and the end of what was stopped
    /// \param connector  for the camera's URL
    /// \param pauses     of all cameras: one that is to be left alone ends the run at once
    /// \param startDelay how long it waits before it connects
    IngestRun(Setup setup, EventLoop& loop, std::shared_ptr<StreamConnector> connector, CameraPauses& pauses,
              Duration startDelay);
    ~IngestRun() override;

    void setTaps(const Taps& taps) override;
    /// Cameras are not asked: few heed it, and none before its next key frame by much.
    void requestKeyFrame() override {}

    std::uint64_t packetCount() const override;
    bool mayWorkByAnotherTransport() const override;
    bool describe(bool partial, std::vector<SubMediaInfo>& tracks) const override;
    /// 0: nothing here can hang.
    Clock::duration busyFor() const override
    {
        return Clock::duration(0);
    }

    void stop() override;
    void mute() override;
    bool awaitEnd(Clock::time_point deadline) const override;

private:
    class Camera;

    const std::shared_ptr<Camera> camera_;
};

}  // namespace refhost

#pragma once
// Tested by tests/refhost/capture/FileRun_test.cpp.

#include <cstdint>
#include <memory>
#include <vector>

#include "refhost/capture/SourceRun.h"

namespace refhost
{

/// A media file that is sent as it is, in a loop and in real time, by one thread and without GStreamer.
///
/// A file that libavformat cannot read, or that has to be decoded for this stream, ends the run with
/// mayWorkByAnotherTransport(). A run that hangs, as on a network's disk, is abandoned like a pipeline.
class FileRun : public SourceRun
{
public:
    /// \throws std::system_error when the system has no thread
    explicit FileRun(Setup setup);
    ~FileRun() override;

    /// Whether a run of these settings is to be tried: a file, at the first attempt.
    static bool mayRead(const Setup& setup);

    void setTaps(const Taps& taps) override;
    /// Files have their key frames where they have them.
    void requestKeyFrame() override {}

    std::uint64_t packetCount() const override;
    bool mayWorkByAnotherTransport() const override;
    bool describe(bool partial, std::vector<SubMediaInfo>& tracks) const override;
    Clock::duration busyFor() const override;

    void stop() override;
    void mute() override;
    bool awaitEnd(Clock::time_point deadline) const override;

private:
    class State;

    const std::shared_ptr<State> state_;
};

}  // namespace refhost

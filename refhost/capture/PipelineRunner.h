#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "refhost/capture/SourceRun.h"

namespace refhost
{

/// Runs a StreamPipeline on a thread of its own, because a source may hang in any call.
///
/// An abandoned pipeline and its thread remain, muted and counted, until the source returns.
class PipelineRunner : public SourceRun
{
public:
    /// \throws std::system_error when the system has no thread
    explicit PipelineRunner(Setup setup);
    ~PipelineRunner() override;

    void setTaps(const Taps& taps) override;
    void requestKeyFrame() override;

    std::uint64_t packetCount() const override;
    bool mayWorkByAnotherTransport() const override;
    bool describe(bool partial, std::vector<SubMediaInfo>& tracks) const override;
    Clock::duration busyFor() const override;

    void stop() override;
    void mute() override;
    bool awaitEnd(Clock::time_point deadline) const override;

    /// Number of abandoned pipelines of the process that have not ended yet.
    static int abandoned();
    /// The same for one stream. \param title  as Setup::title
    static int abandoned(const std::string& title);

private:
    struct State;

    static void run(const std::shared_ptr<State>& state);

    std::shared_ptr<State> state_;
};

}  // namespace refhost

#pragma once

#include "refhost/base/HostClock.h"
#include "refhost/talkback/outputs/AudioOutput.h"

namespace refhost
{

/// Discards audio at the pace of the clock.
class ClockedOutput : public AudioOutput
{
public:
    /// \param clock  outlives the output
    explicit ClockedOutput(const HostClock& clock);

    std::string name() const override;
    bool open(const PcmFormat& format, std::string& problem) override;
    std::optional<std::size_t> queued() override;
    bool write(const std::int16_t* samples, std::size_t frames) override;
    void close() override;

protected:
    /// Frames from the opening until now.
    std::uint64_t passed() const;
    /// Queues frames.
    /// \returns their position in frames since the opening
    std::uint64_t place(std::size_t frames);

private:
    const HostClock& clock_;
    PcmFormat format_;
    MonotonicTime opened_;
    std::uint64_t written_ = 0;  // frames from the opening to the end of what was written
};

}  // namespace refhost

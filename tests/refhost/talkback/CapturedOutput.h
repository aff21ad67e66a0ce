#pragma once

#include <cstddef>
#include <cstdint>

#include "refhost/talkback/outputs/ClockedOutput.h"
#include "tests/refhost/talkback/AudioSamples.h"

namespace refhost
{
namespace test
{

/// Keeps what a loudspeaker would play, for one channel; its begin is the opening.
class CapturedOutput : public ClockedOutput
{
public:
    /// \param heard  outlives the output
    CapturedOutput(const HostClock& clock, Samples& heard) : ClockedOutput(clock), heard_(heard) {}

    bool write(const std::int16_t* samples, std::size_t frames) override
    {
        heard_.resize(static_cast<std::size_t>(place(frames)));
        heard_.insert(heard_.end(), samples, samples + frames);
        return true;
    }

private:
    Samples& heard_;
};

}  // namespace test
}  // namespace refhost

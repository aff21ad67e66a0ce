#pragma once

#include <cstddef>
#include <cstdint>

#include "refhost/talkback/outputs/ClockedOutput.h"
#include "tests/refhost/talkback/AudioSamples.h"

namespace refhost
{
namespace test
{

/// Keeps what a loudspeaker would play, for one channel, from the opening on.
class CapturedOutput : public ClockedOutput
{
public:
    /// \param played  outlives the output
    CapturedOutput(const HostClock& clock, Samples& played) : ClockedOutput(clock), played_(played) {}

    bool write(const std::int16_t* samples, std::size_t frames) override
    {
        played_.resize(static_cast<std::size_t>(place(frames)));
        played_.insert(played_.end(), samples, samples + frames);
        return true;
    }

private:
    Samples& played_;
};

}  // namespace test
}  // namespace refhost

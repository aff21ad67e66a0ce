#include "refhost/audio/AudioOutput.h"

#include "refhost/audio/AlsaOutput.h"
#include "refhost/audio/ClockedOutput.h"
#include "refhost/audio/PulseOutput.h"
#include "refhost/audio/WavOutput.h"

namespace refhost
{

std::unique_ptr<AudioOutput> AudioOutput::make(const std::string& kind, const std::string& device)
{
    if (kind == "alsa")
    {
        return std::make_unique<AlsaOutput>(device);
    }
    if (kind == "pulse")
    {
        return std::make_unique<PulseOutput>(device);
    }
    if (kind == "wav")
    {
        return std::make_unique<WavOutput>(device, HostClock::system());
    }
    if (kind == "null")
    {
        return std::make_unique<ClockedOutput>(HostClock::system());
    }
    return nullptr;
}

}  // namespace refhost

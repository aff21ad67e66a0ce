#include "refhost/talkback/outputs/AudioOutput.h"

#include "refhost/talkback/outputs/AlsaOutput.h"
#include "refhost/talkback/outputs/ClockedOutput.h"
#include "refhost/talkback/outputs/PulseOutput.h"
#include "refhost/talkback/outputs/WavOutput.h"

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

#include "refhost/doctor/OutputCheck.h"

#include <fmt/format.h>

#include "refhost/base/Log.h"
#include "refhost/talkback/outputs/AudioOutput.h"

namespace refhost
{
namespace
{

const char* mendFor(const std::string& kind)
{
    return kind == "pulse"
               ? "Start the sound server for the service's user, or choose output = \"alsa\" in [talk-back]"
               : "Name a device that \"aplay -L\" lists, add the service's user to the group audio, "
                 "and see that no other program holds the device";
}

}  // namespace

OutputCheck::OutputCheck(const ServerConfig& config) : config_(config) {}

std::string OutputCheck::subject() const
{
    return "talk-back";
}

std::vector<Finding> OutputCheck::run()
{
    const TalkBackConfig& talk = config_.talkBack;
    if (!config_.offersTalkBack())
    {
        return {Finding::good("no camera offers it")};
    }
    if (talk.output == "wav")
    {
        return {Finding::good("it is written to a file")};
    }
    const auto output = AudioOutput::make(talk.output, talk.device);
    std::string problem;
    if (output == nullptr || !output->open({talk.sampleRate, talk.channels}, problem))
    {
        return {Finding::failure(
            fmt::format("{} does not open: {}", output == nullptr ? talk.output : output->name(),
                        Log::safe(problem)),
            mendFor(talk.output))};
    }
    output->close();
    return {Finding::good(output->name() + " opens")};
}

}  // namespace refhost

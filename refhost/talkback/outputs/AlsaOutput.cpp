#include "refhost/talkback/outputs/AlsaOutput.h"

#include <alsa/asoundlib.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

constexpr unsigned int bufferMicroseconds = 200000;
constexpr unsigned int periodMicroseconds = 10000;

// The library would write to standard error.
void toLog(const char*, int, const char* function, int, const char* format, ...)
{
    std::array<char, 200> text{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    Log::debug("ALSA: {}: {}", function, Log::safe(text.data()));
}

}  // namespace

AlsaOutput::AlsaOutput(const std::string& device) : device_(device.empty() ? "default" : device)
{
    snd_lib_error_set_handler(toLog);
}

AlsaOutput::~AlsaOutput()
{
    AlsaOutput::close();
}

std::string AlsaOutput::name() const
{
    return "ALSA device " + device_;
}

bool AlsaOutput::open(const PcmFormat& format, std::string& problem)
{
    close();
    int result = snd_pcm_open(&pcm_, device_.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
    if (result < 0)
    {
        pcm_ = nullptr;
        problem = snd_strerror(result);
        return false;
    }
    result = setUp(format);
    if (result < 0)
    {
        problem = snd_strerror(result);
        close();
        return false;
    }
    channels_ = format.channels;
    return true;
}

int AlsaOutput::setUp(const PcmFormat& format)
{
    snd_pcm_hw_params_t* hardware = nullptr;
    snd_pcm_hw_params_alloca(&hardware);
    unsigned int buffer = bufferMicroseconds;
    unsigned int period = periodMicroseconds;
    int result = snd_pcm_hw_params_any(pcm_, hardware);
    const auto step = [&result](int next) { result = result < 0 ? result : next; };
    step(snd_pcm_hw_params_set_access(pcm_, hardware, SND_PCM_ACCESS_RW_INTERLEAVED));
    step(snd_pcm_hw_params_set_format(pcm_, hardware, SND_PCM_FORMAT_S16));
    step(snd_pcm_hw_params_set_channels(pcm_, hardware, static_cast<unsigned int>(format.channels)));
    step(snd_pcm_hw_params_set_rate(pcm_, hardware, static_cast<unsigned int>(format.sampleRate), 0));
    step(snd_pcm_hw_params_set_buffer_time_near(pcm_, hardware, &buffer, nullptr));
    step(snd_pcm_hw_params_set_period_time_near(pcm_, hardware, &period, nullptr));
    step(snd_pcm_hw_params(pcm_, hardware));
    step(snd_pcm_hw_params_get_buffer_size(hardware, &capacity_));
    if (result < 0)
    {
        return result;
    }
    snd_pcm_sw_params_t* software = nullptr;
    snd_pcm_sw_params_alloca(&software);
    result = snd_pcm_sw_params_current(pcm_, software);
    // Plays from the first frame on: a write that follows a pause starts with silence of its own.
    step(snd_pcm_sw_params_set_start_threshold(pcm_, software, 1));
    step(snd_pcm_sw_params(pcm_, software));
    return result;
}

bool AlsaOutput::revive(int error)
{
    if (error == -EPIPE)
    {
        return snd_pcm_prepare(pcm_) == 0;
    }
    if (error == -ESTRPIPE)
    {
        const int resumed = snd_pcm_resume(pcm_);
        return resumed == 0 || resumed == -EAGAIN || snd_pcm_prepare(pcm_) == 0;
    }
    return false;
}

std::optional<std::size_t> AlsaOutput::queued()
{
    if (pcm_ == nullptr)
    {
        return std::nullopt;
    }
    const snd_pcm_sframes_t free = snd_pcm_avail(pcm_);
    if (free < 0)
    {
        return revive(static_cast<int>(free)) ? std::optional<std::size_t>(0) : std::nullopt;
    }
    const auto room = static_cast<unsigned long>(free);
    return room < capacity_ ? capacity_ - room : 0;
}

bool AlsaOutput::write(const std::int16_t* samples, std::size_t frames)
{
    if (pcm_ == nullptr)
    {
        return false;
    }
    bool revived = false;
    while (frames > 0)
    {
        const snd_pcm_sframes_t written = snd_pcm_writei(pcm_, samples, frames);
        if (written == -EAGAIN)
        {
            // The device is full: the rest would be too late anyway.
            return true;
        }
        if (written < 0)
        {
            if (revived || !revive(static_cast<int>(written)))
            {
                return false;
            }
            revived = true;
            continue;
        }
        samples += written * channels_;
        frames -= static_cast<std::size_t>(written);
    }
    return true;
}

void AlsaOutput::close()
{
    if (pcm_ != nullptr)
    {
        snd_pcm_drop(pcm_);
        snd_pcm_close(pcm_);
        pcm_ = nullptr;
    }
}

}  // namespace refhost

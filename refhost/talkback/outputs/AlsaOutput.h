#pragma once
// Tested by tests/refhost/talkback/SoundCards_test.cpp.

#include "refhost/talkback/outputs/AudioOutput.h"

// NOLINTNEXTLINE(clang-diagnostic-reserved-identifier): the name is ALSA's own
typedef struct _snd_pcm snd_pcm_t;

namespace refhost
{

/// A playback device of ALSA.
class AlsaOutput : public AudioOutput
{
public:
    /// \param device  as `aplay -L` lists them; empty for "default"
    explicit AlsaOutput(const std::string& device);
    ~AlsaOutput() override;
    AlsaOutput(const AlsaOutput&) = delete;
    AlsaOutput& operator=(const AlsaOutput&) = delete;

    std::string name() const override;
    bool open(const PcmFormat& format, std::string& problem) override;
    std::optional<std::size_t> queued() override;
    bool write(const std::int16_t* samples, std::size_t frames) override;
    void close() override;

private:
    int setUp(const PcmFormat& format);
    bool revive(int error);

    const std::string device_;
    snd_pcm_t* pcm_ = nullptr;
    int channels_ = 1;
    unsigned long capacity_ = 0;  // frames in the device's buffer
};

}  // namespace refhost

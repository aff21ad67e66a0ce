#pragma once
// Tested by tests/refhost/talkback/SoundCards_test.cpp.

#include <chrono>

#include "refhost/talkback/outputs/AudioOutput.h"

struct pa_context;
struct pa_mainloop;
struct pa_stream;

namespace refhost
{

/// A sink of PulseAudio, or of PipeWire, which speaks its protocol.
///
/// It has no thread: messages of the sound server are handled whenever the output is used.
class PulseOutput : public AudioOutput
{
public:
    /// \param sink  as `pactl list short sinks` lists them; empty for the default one
    explicit PulseOutput(std::string sink);
    ~PulseOutput() override;
    PulseOutput(const PulseOutput&) = delete;
    PulseOutput& operator=(const PulseOutput&) = delete;

    std::string name() const override;
    bool open(const PcmFormat& format, std::string& problem) override;
    std::optional<std::size_t> queued() override;
    bool write(const std::int16_t* samples, std::size_t frames) override;
    void close() override;

private:
    using Deadline = std::chrono::steady_clock::time_point;

    bool connect(Deadline deadline);
    bool startStream(const PcmFormat& format, Deadline deadline);
    bool wait(Deadline deadline);
    bool iterate();
    bool isGood() const;
    std::string problem() const;

    const std::string sink_;
    pa_mainloop* loop_ = nullptr;
    pa_context* context_ = nullptr;
    pa_stream* stream_ = nullptr;
    std::size_t frameSize_ = 2;
    bool dry_ = true;
};

}  // namespace refhost

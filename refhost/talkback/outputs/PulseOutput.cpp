#include "refhost/talkback/outputs/PulseOutput.h"

#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/mainloop.h>
#include <pulse/stream.h>

#include <utility>

namespace refhost
{
namespace
{

constexpr std::chrono::milliseconds maxOpening{400};
constexpr std::chrono::milliseconds bufferSpan(200);
constexpr std::chrono::milliseconds requestSpan(10);
constexpr std::chrono::milliseconds startSpan(5);
constexpr int maxEvents = 100;

}  // namespace

PulseOutput::PulseOutput(std::string sink) : sink_(std::move(sink)) {}

PulseOutput::~PulseOutput()
{
    PulseOutput::close();
}

std::string PulseOutput::name() const
{
    return "PulseAudio sink " + (sink_.empty() ? "by default" : sink_);
}

bool PulseOutput::isGood() const
{
    return context_ != nullptr && PA_CONTEXT_IS_GOOD(pa_context_get_state(context_)) &&
           (stream_ == nullptr || PA_STREAM_IS_GOOD(pa_stream_get_state(stream_)));
}

std::string PulseOutput::problem() const
{
    const int error = context_ == nullptr ? PA_OK : pa_context_errno(context_);
    return error == PA_OK ? "the sound server does not answer" : pa_strerror(error);
}

bool PulseOutput::open(const PcmFormat& format, std::string& problem)
{
    close();
    const Deadline deadline = std::chrono::steady_clock::now() + maxOpening;
    loop_ = pa_mainloop_new();
    if (loop_ != nullptr && connect(deadline) && startStream(format, deadline))
    {
        return true;
    }
    problem = this->problem();
    close();
    return false;
}

bool PulseOutput::connect(Deadline deadline)
{
    context_ = pa_context_new(pa_mainloop_get_api(loop_), "ovrtspd");
    if (context_ == nullptr || pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
    {
        return false;
    }
    while (isGood() && pa_context_get_state(context_) != PA_CONTEXT_READY)
    {
        if (!wait(deadline))
        {
            return false;
        }
    }
    return isGood();
}

bool PulseOutput::startStream(const PcmFormat& format, Deadline deadline)
{
    pa_sample_spec spec{};
    spec.format = PA_SAMPLE_S16NE;
    spec.rate = static_cast<std::uint32_t>(format.sampleRate);
    spec.channels = static_cast<std::uint8_t>(format.channels);
    frameSize_ = pa_frame_size(&spec);
    dry_ = true;
    const auto bytesOf = [&](std::chrono::milliseconds span)
    { return static_cast<std::uint32_t>(format.frames(span) * frameSize_); };
    pa_buffer_attr attributes{};
    attributes.maxlength = bytesOf(2 * bufferSpan);
    attributes.tlength = bytesOf(bufferSpan);
    attributes.prebuf = bytesOf(startSpan);
    attributes.minreq = bytesOf(requestSpan);
    attributes.fragsize = static_cast<std::uint32_t>(-1);
    stream_ = pa_stream_new(context_, "talk-back", &spec, nullptr);
    if (stream_ == nullptr)
    {
        return false;
    }
    pa_stream_set_underflow_callback(
        stream_, [](pa_stream*, void* self) { static_cast<PulseOutput*>(self)->dry_ = true; }, this);
    if (pa_stream_connect_playback(stream_, sink_.empty() ? nullptr : sink_.c_str(), &attributes,
                                   PA_STREAM_EARLY_REQUESTS, nullptr, nullptr) < 0)
    {
        return false;
    }
    while (isGood() && pa_stream_get_state(stream_) != PA_STREAM_READY)
    {
        if (!wait(deadline))
        {
            return false;
        }
    }
    return isGood();
}

bool PulseOutput::wait(Deadline deadline)
{
    const auto left =
        std::chrono::duration_cast<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now());
    return left.count() > 0 && pa_mainloop_prepare(loop_, static_cast<int>(left.count())) >= 0 &&
           pa_mainloop_poll(loop_) >= 0 && pa_mainloop_dispatch(loop_) >= 0;
}

bool PulseOutput::iterate()
{
    for (int i = 0; i < maxEvents && isGood() && pa_mainloop_iterate(loop_, 0, nullptr) > 0; ++i)
    {
    }
    return stream_ != nullptr && isGood();
}

std::optional<std::size_t> PulseOutput::queued()
{
    if (loop_ == nullptr || !iterate())
    {
        return std::nullopt;
    }
    if (dry_)
    {
        return 0;
    }
    const pa_buffer_attr* const attributes = pa_stream_get_buffer_attr(stream_);
    const std::size_t room = pa_stream_writable_size(stream_);
    if (attributes == nullptr || room == static_cast<std::size_t>(-1))
    {
        return std::nullopt;
    }
    // The server requests more before it reports an underflow.
    return room < attributes->tlength ? (attributes->tlength - room) / frameSize_ : 1;
}

bool PulseOutput::write(const std::int16_t* samples, std::size_t frames)
{
    if (stream_ == nullptr ||
        pa_stream_write(stream_, samples, frames * frameSize_, nullptr, 0, PA_SEEK_RELATIVE) < 0)
    {
        return false;
    }
    dry_ = false;
    return iterate();
}

void PulseOutput::close()
{
    if (stream_ != nullptr)
    {
        pa_stream_set_underflow_callback(stream_, nullptr, nullptr);
        pa_stream_disconnect(stream_);
        pa_stream_unref(stream_);
        stream_ = nullptr;
    }
    if (context_ != nullptr)
    {
        pa_context_disconnect(context_);
        pa_context_unref(context_);
        context_ = nullptr;
    }
    if (loop_ != nullptr)
    {
        pa_mainloop_free(loop_);
        loop_ = nullptr;
    }
}

}  // namespace refhost

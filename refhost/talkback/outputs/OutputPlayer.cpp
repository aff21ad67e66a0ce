#include "refhost/talkback/outputs/OutputPlayer.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "refhost/base/Log.h"
#include "support/StatusCode.h"

namespace refhost
{

OutputPlayer::OutputPlayer(std::unique_ptr<AudioOutput> output, const PcmFormat& format,
                           std::chrono::milliseconds lead)
    : output_(std::move(output)), format_(format), lead_(lead)
{
}

OutputPlayer::~OutputPlayer() noexcept(false)
{
    OutputPlayer::close();
}

void OutputPlayer::setDeviceInfo(const DeviceInfoEx& info)
{
    const MutexLock guard(mutex_);
    deviceId_ = info.getDeviceID();
}

void OutputPlayer::setEncoderType(int type)
{
    const MutexLock guard(mutex_);
    encoderType_ = type;
}

void OutputPlayer::logProblem(const std::string& problem)
{
    // It is retried while somebody talks; one line is enough.
    if (problem != reported_)
    {
        Log::warning("talk-back: {}", Log::safe(problem));
        reported_ = problem;
    }
}

int OutputPlayer::open()
{
    const MutexLock guard(mutex_);
    output_->close();
    open_ = false;
    if (backsOff_)
    {
        backsOff_ = false;
        return statusPlayerUnusable;
    }
    std::string problem;
    if (!output_->open(format_, problem))
    {
        logProblem(output_->name() + " cannot be opened: " + problem);
        return statusPlayerUnusable;
    }
    open_ = true;
    played_ = 0;
    pacer_ = std::make_unique<PlayoutPacer>(format_, lead_);
    if (!flaps_)
    {
        reported_.clear();
        Log::info("talk-back: {} of {} is open, {} Hz, {} channels, encoder type {}",
                  Log::safe(output_->name()), Log::safe(deviceId_), format_.sampleRate, format_.channels,
                  encoderType_);
    }
    return statusSuccess;
}

int OutputPlayer::play(const std::uint8_t* samples, std::size_t bytes)
{
    const MutexLock guard(mutex_);
    if (!open_)
    {
        return statusPlayerUnusable;
    }
    const auto channels = static_cast<std::size_t>(format_.channels);
    block_.resize(bytes / (sizeof(std::int16_t) * channels) * channels);
    if (!block_.empty())
    {
        std::memcpy(block_.data(), samples, block_.size() * sizeof(std::int16_t));
    }
    const std::optional<std::size_t> queued = output_->queued();
    bool works = queued.has_value();
    if (works)
    {
        pacer_->pace(*queued, block_);
        works = block_.empty() || output_->write(block_.data(), block_.size() / channels);
    }
    if (!works)
    {
        noteFailure();
        return statusPlayerUnusable;
    }
    notePlayed(block_.size() / channels);
    return statusSuccess;
}

void OutputPlayer::noteFailure()
{
    logProblem(output_->name() + " failed");
    flaps_ = played_ < static_cast<std::size_t>(format_.sampleRate);
    backsOff_ = flaps_;
}

void OutputPlayer::notePlayed(std::size_t frames)
{
    // Saturated: a 32-bit count of frames would wrap within a day.
    const auto second = static_cast<std::size_t>(format_.sampleRate);
    played_ = std::min(played_ + frames, second);
    if (flaps_ && played_ == second)
    {
        flaps_ = false;
        reported_.clear();
        Log::info("talk-back: {} plays again", Log::safe(output_->name()));
    }
}

void OutputPlayer::close()
{
    const MutexLock guard(mutex_);
    output_->close();
    if (open_ && !flaps_)
    {
        Log::info("talk-back: {} is closed", Log::safe(output_->name()));
    }
    open_ = false;
}

}  // namespace refhost

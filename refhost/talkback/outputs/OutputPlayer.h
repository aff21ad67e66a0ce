#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "hostapi/audio/IMediaPlayer.h"
#include "refhost/base/Mutex.h"
#include "refhost/talkback/outputs/AudioOutput.h"
#include "refhost/talkback/outputs/PcmFormat.h"
#include "refhost/talkback/outputs/PlayoutPacer.h"

namespace refhost
{

/// The device's audio output, as the talk-back manager and its dispatchers use it.
///
/// Threads: any; one lock of its own, for each whole operation.
class OutputPlayer : public IMediaPlayer
{
public:
    /// \param lead  \see PlayoutPacer
    OutputPlayer(std::unique_ptr<AudioOutput> output, const PcmFormat& format,
                 std::chrono::milliseconds lead);
    ~OutputPlayer() noexcept(false) override;

    void setDeviceInfo(const DeviceInfoEx& info) override;
    /// Logged only: the output gets decoded audio whatever clients send.
    void setEncoderType(int type) override;
    /// After an output failed within its first second of audio, the first attempt to open it fails as well,
    /// so that the worker backs off.
    /// \returns 0, or statusPlayerUnusable; the reason is logged once until it changes
    int open() override;
    /// \param samples  of the format that the player was made with
    /// \returns 0, even if audio was dropped as too fast; statusPlayerUnusable when the output failed or is
    ///          closed
    int play(const std::uint8_t* samples, std::size_t bytes) override;
    void close() override;

private:
    void logProblem(const std::string& problem) OV_REQUIRES(mutex_);
    void noteFailure() OV_REQUIRES(mutex_);
    void notePlayed(std::size_t frames) OV_REQUIRES(mutex_);

    Mutex mutex_;
    const std::unique_ptr<AudioOutput> output_ OV_PT_GUARDED_BY(mutex_);
    const PcmFormat format_;
    const std::chrono::milliseconds lead_;
    std::string deviceId_ OV_GUARDED_BY(mutex_);
    int encoderType_ OV_GUARDED_BY(mutex_) = 0;
    bool open_ OV_GUARDED_BY(mutex_) = false;
    std::string reported_ OV_GUARDED_BY(mutex_);    // the last problem logged
    std::size_t played_ OV_GUARDED_BY(mutex_) = 0;  // frames since the opening
    bool flaps_ OV_GUARDED_BY(mutex_) = false;      // failed soon after the last opening
    bool backsOff_ OV_GUARDED_BY(mutex_) = false;
    std::unique_ptr<PlayoutPacer> pacer_ OV_GUARDED_BY(mutex_);
    std::vector<std::int16_t> block_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

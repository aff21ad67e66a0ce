#pragma once
// Tested by tests/refhost/talkback/outputs/ClockedOutput_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "refhost/talkback/outputs/PcmFormat.h"

namespace refhost
{

/// A destination of audio: a sound card, a sound server, a file, or none. Plays at its own pace, and is
/// silent when its queue is empty.
///
/// Threads: one at a time. Only open() may wait, and for half a second at most.
class AudioOutput
{
public:
    virtual ~AudioOutput() = default;

    /// Its name in the log: "ALSA device default".
    virtual std::string name() const = 0;

    /// Opens it. Requires: it is closed.
    /// \param[out] problem  why it did not open
    /// \returns true when it is open
    virtual bool open(const PcmFormat& format, std::string& problem) = 0;

    /// How much of the written audio is not played yet.
    /// \returns frames, 0 when it ran dry or before the first write; nothing when the output failed
    virtual std::optional<std::size_t> queued() = 0;

    /// Queues audio; plays it at once when it ran dry.
    /// \param samples  interleaved, `frames` for each channel
    /// \returns false when the output failed
    virtual bool write(const std::int16_t* samples, std::size_t frames) = 0;

    /// Closes it, if open. Queued audio may be cut off.
    virtual void close() = 0;

    /// \param kind    "alsa", "pulse", "wav" or "null"
    /// \param device  the ALSA device's or the sink's name, empty for the default one; or the WAV file's path
    /// \returns null for another kind
    static std::unique_ptr<AudioOutput> make(const std::string& kind, const std::string& device);
};

}  // namespace refhost

#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/talkback/outputs/PcmFormat.h"

namespace refhost
{

/// Mixes the audio of several senders. The sum is taken by the clock, not when audio arrives, because
/// senders' packets arrive at different times.
///
/// Threads: one at a time.
class TalkMixer
{
public:
    using TalkSender = const void*;

    explicit TalkMixer(const PcmFormat& format);

    /// Appends to a sender's audio. If more than 90 ms wait already, they are cut to the last 60 ms, so that
    /// a burst of packets causes no lasting delay. Of a long block the last 200 ms are kept.
    void add(TalkSender sender, const std::vector<std::int16_t>& samples);
    void remove(TalkSender sender);

    /// Takes the sum due since the previous call. A sender joins when 60 ms of its audio wait, so that uneven
    /// packets leave no gaps.
    /// \param[out] sum   empty when nothing is due or nobody talks
    void take(MonotonicTime now, std::vector<std::int16_t>& sum);

private:
    struct Line
    {
        std::deque<std::int16_t> samples;
        bool started = false;

        void keepLast(std::size_t max);
    };

    std::size_t samplesOf(std::chrono::milliseconds span) const;

    const PcmFormat format_;
    std::map<TalkSender, Line> lines_;
    bool running_ = false;
    MonotonicTime due_;  // the end of the audio taken so far
};

}  // namespace refhost

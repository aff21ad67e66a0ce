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

/// Adds several senders' audio up to one. The sum leaves by the clock, not when audio comes: senders' packets
/// do not come at the same instants.
///
/// Threads: one at a time.
class TalkMixer
{
public:
    using TalkSender = const void*;

    explicit TalkMixer(const PcmFormat& format);

    /// Appends to a sender's audio. Where more than 90 ms wait already, all but the last 60 ms of them go, so
    /// that a burst of packets delays nobody for good; of a long piece the last fifth of a second is kept.
    void add(TalkSender sender, const std::vector<std::int16_t>& samples);
    void remove(TalkSender sender);

    /// Takes the sum of what is due since the call before. A sender comes in with 60 ms ahead, so that uneven
    /// packets leave no holes.
    /// \param[out] sum   empty when nobody talks
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
    MonotonicTime due_;  // until when audio was taken
};

}  // namespace refhost

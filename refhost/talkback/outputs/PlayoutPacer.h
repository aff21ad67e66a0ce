#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "refhost/talkback/outputs/PcmFormat.h"

namespace refhost
{

/// Passes unevenly arriving audio to an output that plays evenly, far enough ahead of playing that jitter
/// leaves no gaps, but not so far that talk lags behind.
///
/// Audio starts with a lead of silence, also after each pause; several packets that arrive at once after the
/// output ran dry are their own lead. The sender's clock and the output's differ: when the lead was off for
/// seconds, audio is stretched or shortened by an inaudible thousandth. Audio that would play more than 30 ms
/// later than at the start is dropped.
///
/// Threads: one at a time.
class PlayoutPacer
{
public:
    /// \param lead  how far the audio starts ahead of playing
    PlayoutPacer(const PcmFormat& format, std::chrono::milliseconds lead);

    /// Turns a block of audio into what is to be written.
    /// \param queued           frames that the output has not played yet; 0: it ran dry
    /// \param[in,out] samples  the block; emptied if dropped
    void pace(std::size_t queued, std::vector<std::int16_t>& samples);

private:
    std::size_t packetOf(std::size_t frames);
    void start(std::size_t packet, std::vector<std::int16_t>& samples);
    void keepLast(std::size_t frames, std::vector<std::int16_t>& samples) const;
    void watch(std::size_t ahead, std::size_t frames);
    void judge();
    void stretch(std::vector<std::int16_t>& samples);

    const PcmFormat format_;
    const std::size_t channels_;
    const std::chrono::milliseconds lead_;
    std::size_t watched_ = 0;     // frames of the current second
    std::size_t min_;             // smallest distance ahead in it
    std::size_t minBlock_;        // shortest block in it
    std::size_t minBlockBefore_;  // the same for the previous second
    int tooFar_ = 0;              // consecutive seconds in which it was always too far ahead
    int tooClose_ = 0;            // consecutive seconds in which it came too close
    int drift_ = 0;               // 1: shorten; -1: stretch
    std::size_t owed_ = 0;        // frames since the last one removed or added
    std::vector<std::int16_t> stretched_;
};

}  // namespace refhost

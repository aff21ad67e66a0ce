#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "refhost/talkback/outputs/PcmFormat.h"

namespace refhost
{

/// Decides how audio that comes unevenly is given to an output that plays evenly: how far it is kept ahead of
/// what is heard, so that uneven packets leave no holes, and never so far that talk lags behind.
///
/// It starts some time ahead, also after each pause; where it ran dry because packets were lost or late and
/// several come at once, they are that lead themselves. The sender's clock and the output's are never quite
/// the same: when the audio has been out of its place for seconds it is stretched or shortened by a
/// thousandth, which nobody hears. Audio that would come more than 30 ms later than it started is dropped.
///
/// Threads: one at a time.
class PlayoutPacer
{
public:
    /// \param lead  how far the audio starts ahead of what is heard
    PlayoutPacer(const PcmFormat& format, std::chrono::milliseconds lead);

    /// Makes of a piece of audio what is to be written.
    /// \param queued           frames that the output has to play yet; 0: it ran dry
    /// \param[in,out] samples  the piece; becomes empty where it is dropped
    void pace(std::size_t queued, std::vector<std::int16_t>& samples);

private:
    std::size_t packetOf(std::size_t frames);
    void begin(std::size_t packet, std::vector<std::int16_t>& samples);
    void keepLast(std::size_t frames, std::vector<std::int16_t>& samples) const;
    void watch(std::size_t ahead, std::size_t frames);
    void judge();
    void stretch(std::vector<std::int16_t>& samples);

    const PcmFormat format_;
    const std::size_t channels_;
    const std::chrono::milliseconds lead_;
    std::size_t watched_ = 0;     // frames of the second that is watched
    std::size_t min_;             // the least that the audio was ahead in it
    std::size_t shortest_;        // piece in it
    std::size_t shortestBefore_;  // piece in the second before
    int tooFar_ = 0;              // seconds in which it was too far ahead all the time, one after the other
    int tooClose_ = 0;            // seconds in which it came too close, one after the other
    int drift_ = 0;               // 1: shorten; -1: stretch
    std::size_t owed_ = 0;        // frames since the last one that was left out or added
    std::vector<std::int16_t> stretched_;
};

}  // namespace refhost

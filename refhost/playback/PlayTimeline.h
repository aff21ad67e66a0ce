#pragma once

#include <cstdint>

namespace refhost
{

/// How the time of recorded media maps to the time of its player, for all tracks of a session.
///
/// Player's time counts nanoseconds from 0 and never goes back: after a gap in the recorded media or a seek it goes
/// on where it was (RFC 2326, appendix B). Threads: one at a time.
class PlayTimeline
{
public:
    /// RecordedMedia goes on at `mediaNs`, wherever it was before.
    /// \param scale  seconds of recorded media in a second of the player's time
    void jump(std::int64_t mediaNs, double scale);

    /// Changes the scale from `mediaNs` on.
    void rescale(std::int64_t mediaNs, double scale);

    /// Player's time of an instant of the present section; its begin for instants before.
    std::int64_t at(std::int64_t mediaNs) const;

    /// Something was sent that is over at `mediaNs`: what comes after a jump starts behind it.
    void sentUntil(std::int64_t mediaNs);

    /// Where the next section would begin.
    std::int64_t endNs() const
    {
        return endNs_;
    }

    double scale() const
    {
        return scale_;
    }

    /// RTP ticks of a span of player's time.
    static std::uint32_t ticks(std::int64_t playNs, std::uint32_t clockRate);

private:
    std::int64_t mediaNs_ = 0;  // an instant of the present section, and
    std::int64_t playNs_ = 0;   // its player's time
    double scale_ = 1;
    std::int64_t endNs_ = 0;
};

}  // namespace refhost

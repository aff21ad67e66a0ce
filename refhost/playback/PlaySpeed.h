#pragma once

namespace refhost
{

/// How fast a recording plays. A plain value.
///
/// `scale` is how much recorded media passes in a second of the player's time, negative when it plays backwards: RTP
/// timestamps are those of the scaled recorded media (RFC 2326, section 12.34 and appendix B). `speed` is how much
/// faster than its timestamps say the scaled recorded media is delivered (section 12.35).
struct PlaySpeed
{
    static constexpr double min = 0.25;
    static constexpr double max = 32;
    /// Above this scale only key frames are sent.
    static constexpr double allFramesUpTo = 4;
    /// Audio is sent from scale 1 up to this one, with blocks left out so that the others fit.
    static constexpr double audioUpTo = 2;

    double scale = 1;
    double speed = 1;

    /// What is really done where a client asks for this much: each is brought into [min, max], the
    /// scale in its direction, and recorded media is never delivered faster than `max` in all, for which the
    /// speed gives way. What is no speed (0, not a number, a speed below 0) counts as 1.
    static PlaySpeed used(double scale, double speed);

    bool backwards() const
    {
        return scale < 0;
    }

    /// How much recorded media passes, whichever way.
    double rate() const
    {
        return backwards() ? -scale : scale;
    }

    /// Backwards, too: others cannot be decoded without those before them.
    bool keyFramesOnly() const
    {
        return backwards() || scale > allFramesUpTo;
    }

    bool withAudio() const
    {
        return scale >= 1 && scale <= audioUpTo;
    }

    bool operator==(const PlaySpeed& other) const
    {
        return scale == other.scale && speed == other.speed;
    }

    bool operator!=(const PlaySpeed& other) const
    {
        return !(*this == other);
    }
};

/// Bits of `rangeKind` in the operation setPlayRange(). They stay until they are set again.
enum PlayRangeKind
{
    /// Packets carry the header extension of ONVIF replay.
    playRangeReplay = 1,
    /// The recording is sent as fast as the transport takes it.
    playRangeUnpaced = 2,
    /// Only key frames and no audio.
    playRangeKeyFrames = 4,
    /// Shift of eight bits that hold the low byte of the CSeq of the request, which the header extension
    /// repeats.
    playRangeSequenceShift = 8,
    /// Shift of fifteen bits that hold how far apart key frames are at least, where only these are sent: in
    /// the recorded media, in units of 10 ms. 0: every one is sent.
    playRangeDistanceShift = 16,
    playRangeMaxDistance = 0x7fff
};

}  // namespace refhost

#pragma once

namespace refhost
{

/// How fast a recording plays. A plain value.
///
/// `scale`: seconds of recorded media in a second of the player's time, negative backwards; RTP timestamps
/// are those of the scaled media (RFC 2326, section 12.34 and appendix B). `speed`: how much faster than its
/// timestamps the scaled media is delivered (section 12.35).
struct PlaySpeed
{
    static constexpr double min = 0.25;
    static constexpr double max = 32;
    /// Above this scale only key frames are sent.
    static constexpr double allFramesUpTo = 4;
    /// Audio is sent from scale 1 up to this one; blocks are skipped so that the others fit.
    static constexpr double audioUpTo = 2;

    double scale = 1;
    double speed = 1;

    /// The values that a client's request results in: each is clamped to [min, max], the scale in its
    /// direction, and the speed is reduced so that media is never delivered faster than `max` in all. Invalid
    /// values (0, not a number, a speed below 0) count as 1.
    static PlaySpeed used(double scale, double speed);

    bool backwards() const
    {
        return scale < 0;
    }

    /// Absolute value of the scale.
    double rate() const
    {
        return backwards() ? -scale : scale;
    }

    /// Also backwards: other frames cannot be decoded without their predecessors.
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
    /// Shift of fifteen bits that hold the min. distance of key frames, where only these are sent: in the
    /// recorded media, in units of 10 ms. 0: every one is sent.
    playRangeDistanceShift = 16,
    playRangeMaxDistance = 0x7fff
};

}  // namespace refhost

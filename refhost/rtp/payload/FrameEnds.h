#pragma once
// Tested by tests/refhost/rtp/payload/H264Depacketizer_test.cpp.

namespace refhost
{

/// Finds out whether the markers of a sender end its frames.
///
/// Many cameras set the marker on each slice or NAL unit. That they do shows when more of the same frame
/// comes after a marker; that they do not, when the first frame with a marker is followed by another. A
/// sender that was found out stays so. Threads: one at a time.
class FrameEnds
{
public:
    /// A packet with the marker was taken. \returns true when the frame ends here for certain
    bool onMarker()
    {
        marked_ = true;
        return belief_ == Belief::trusted;
    }

    /// Another frame starts.
    void onNextFrame()
    {
        if (marked_ && belief_ == Belief::unknown)
        {
            belief_ = Belief::trusted;
        }
        marked_ = false;
    }

    /// More of a frame came whose marker was seen before; nothing was lost between.
    void onMoreOfFrame()
    {
        belief_ = Belief::refuted;
    }

    /// The current frame has a marker, which may be its end.
    bool mayBeWhole() const
    {
        return marked_ && belief_ != Belief::refuted;
    }

    void reset()
    {
        belief_ = Belief::unknown;
        marked_ = false;
    }

private:
    enum class Belief
    {
        unknown,
        trusted,
        refuted
    };

    Belief belief_ = Belief::unknown;
    bool marked_ = false;
};

}  // namespace refhost

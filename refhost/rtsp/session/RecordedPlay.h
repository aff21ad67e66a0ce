#pragma once

#include <optional>
#include <string>
#include <vector>

#include "live/IRTSPController.h"
#include "refhost/base/Times.h"
#include "refhost/playback/PlaySpeed.h"
#include "refhost/rtsp/message/PlayRequest.h"
#include "refhost/rtsp/message/RangeHeader.h"
#include "refhost/rtsp/message/RtspStatus.h"
#include "support/SafePointer.h"

namespace refhost
{

/// What a session that plays a recording does around the controller's play() and pause(): it turns what a
/// client orders into positions and speeds of the controller, and tells what came of it.
///
/// Positions are normal play time: 0 is the first frame that is sent, as the controller's description says.
/// Absolute times of the client become normal play time here, and back. Ranges are bounded here as well: the
/// controller's correctPlayRange() knows the length of the URL's interval alone, which starts later than its
/// first frame where it starts inside a GOP, and earlier where recording started later. Threads: one at a time;
/// RtspSession calls it under its lock.
class RecordedPlay
{
public:
    /// What is really played; the answer to PLAY says so.
    struct Outcome
    {
        RangeHeader::Position begin{0};  ///< in the unit of the request's range
        RangeHeader::Position end{0};    ///< before `begin` when it plays backwards
        PlaySpeed speed;
    };

    /// \param sessionId, controller  the session's; the controller outlives this object
    RecordedPlay(std::string sessionId, const SafePointer<IRTSPController>& controller);

    /// Sets the controller's tracks up for what is ordered; play() of each is to follow.
    ///
    /// Without a range or with "now-", playing goes on where it is, or starts again where it had come to its
    /// end; an order for nothing at all changes nothing where everything plays (RFC 2326, section 10.5). A
    /// range that reaches beyond the recording plays the part of it that there is. Backwards, an open begin
    /// is the recording's end and an open end its begin. \param playing  every one of the tracks plays
    /// already \returns 200; 457 for a range without any part of the recording; otherwise what the
    ///          controller's code means. Nothing changes with 457.
    RtspStatus prepare(const PlayRequest& order, bool playing, const std::vector<std::string>& tracks);

    /// What the controller plays since the last play() of every track.
    Outcome outcome(RangeHeader::Unit unit, const std::vector<std::string>& tracks);

    /// Has playing tracks stop at an instant to come (RFC 2326, section 10.6).
    /// \returns 200; 457 for an instant that playing does not come to; otherwise what the controller's code
    ///          means
    RtspStatus pauseAt(const RangeHeader& point, const std::vector<std::string>& tracks);

private:
    struct Position
    {
        double begin = 0;  ///< seconds
        double end = 0;
    };

    struct Presentation
    {
        WallTime begin;
        double seconds = 0;
    };

    RtspStatus locate(const RangeHeader& range, bool backwards, Position& out);
    RtspStatus move(const Position* to, int kind, const std::vector<std::string>& tracks);
    RtspStatus setSpeed(const PlaySpeed& speed, const std::vector<std::string>& tracks);
    Position played(const std::vector<std::string>& tracks);
    double npt(RangeHeader::Unit unit, RangeHeader::Position position);
    RangeHeader::Position positionOf(RangeHeader::Unit unit, double npt);
    bool countsFromNtp(const RangeHeader& range);
    WallTime clockBase();
    const Presentation& presentation();

    const std::string sessionId_;
    SafePointer<IRTSPController> controller_;
    std::optional<Presentation> presentation_;
    int kind_ = 0;
    PlaySpeed speed_;
    bool countsFromNtp_ = false;  // the absolute times of the last range
};

}  // namespace refhost

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

/// Translates a client's play requests for a recording into positions and speeds of the controller, and
/// reports the result.
///
/// Positions are normal play time, where 0 is the first frame of the controller's description. Converts from
/// and to absolute times. Also bounds ranges, because the controller's correctPlayRange() only knows the
/// URL's interval, which differs from the recording: it may start inside a GOP, or before recording started.
/// Threads: one at a time; RtspSession calls it under its lock.
class RecordedPlay
{
public:
    /// What is actually played, for the response to PLAY.
    struct Outcome
    {
        RangeHeader::Position begin{0};  ///< in the unit of the request's range
        RangeHeader::Position end{0};    ///< before `begin` when it plays backwards
        PlaySpeed speed;
    };

    /// \param sessionId, controller  the session's; the controller outlives this object
    RecordedPlay(std::string sessionId, const SafePointer<IRTSPController>& controller);

    /// Prepares the controller's tracks for the request; play() of each has to follow.
    ///
    /// Without a range or with "now-", playing continues from the present position, or restarts after its end.
    /// A request without any header changes nothing if every track plays (RFC 2326, section 10.5). A range
    /// beyond the recording is cut to it. Backwards, an open start is the recording's end and an open end its
    /// start.
    /// \param playing  every one of the tracks plays already
    /// \returns 200; 457, with nothing changed, for a range outside the recording; otherwise the status of the
    ///          controller's code
    RtspStatus prepare(const PlayRequest& order, bool playing, const std::vector<std::string>& tracks);

    /// What the controller plays since the last play() of each track.
    Outcome outcome(RangeHeader::Unit unit, const std::vector<std::string>& tracks);

    /// Pauses playing tracks at a future position (RFC 2326, section 10.6).
    /// \returns 200; 457 for a position that playing does not reach; otherwise the status of the controller's
    ///          code
    RtspStatus pauseAt(const RangeHeader& point, const std::vector<std::string>& tracks);

private:
    struct Position
    {
        double begin = 0;  ///< seconds
        double end = 0;
    };

    /// Of a range, whatever its direction.
    enum class Bound
    {
        early,
        late
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
    RangeHeader::Position positionOf(RangeHeader::Unit unit, double npt, Bound bound);
    bool countsFromNtp(const RangeHeader& range);
    WallTime clockBase();
    const Presentation& presentation();

    const std::string sessionId_;
    SafePointer<IRTSPController> controller_;
    std::optional<Presentation> presentation_;
    int kind_ = 0;
    PlaySpeed speed_;
    bool countsFromNtp_ = false;  // for the absolute times of the last range
};

}  // namespace refhost

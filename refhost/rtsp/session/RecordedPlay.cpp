#include "refhost/rtsp/session/RecordedPlay.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "hostapi/description/MediaInfo.h"
#include "refhost/rtsp/message/StatusMap.h"

namespace refhost
{
namespace
{

using Step = StatusMap::Step;
using Unit = RangeHeader::Unit;

using Seconds = std::chrono::duration<double>;

/// The epoch of NTP, 1900, since 1970.
constexpr std::chrono::seconds ntpEpoch(-2'208'988'800);

int kindOf(const PlayRequest& order)
{
    if (!order.replay)
    {
        return 0;
    }
    using Hundredths = std::chrono::duration<int, std::centi>;
    const int distance =
        std::min<int>(std::chrono::ceil<Hundredths>(order.keyFrameDistance).count(), playRangeMaxDistance);
    const int frames = order.keyFramesOnly ? playRangeKeyFrames | distance << playRangeDistanceShift : 0;
    return playRangeReplay | (order.noRateControl ? playRangeUnpaced : 0) | frames |
           order.sequence << playRangeSequenceShift;
}

/// Without rate control only the direction matters (ONVIF Streaming, "Scale header field").
PlaySpeed speedOf(const PlayRequest& order)
{
    const double scale = order.scale.value_or(1);
    const bool direction = order.replay && order.noRateControl;
    return PlaySpeed::used(direction ? std::copysign(1, scale) : scale, order.speed.value_or(1));
}

}  // namespace

RecordedPlay::RecordedPlay(std::string sessionId, const SafePointer<IRTSPController>& controller)
    : sessionId_(std::move(sessionId)), controller_(controller)
{
}

RtspStatus RecordedPlay::prepare(const PlayRequest& order, bool playing,
                                 const std::vector<std::string>& tracks)
{
    if (!order.range && !order.scale && !order.speed && playing)
    {
        return rtspOk;
    }
    std::optional<Position> to;
    if (order.range && (order.range->begin || order.range->end))
    {
        to.emplace();
        const RtspStatus status = locate(*order.range, order.backwards(), *to);
        if (status != rtspOk)
        {
            return status;
        }
    }
    const PlaySpeed speed = speedOf(order);
    RtspStatus status = speed == speed_ ? rtspOk : setSpeed(speed, tracks);
    const int kind = kindOf(order);
    if (status == rtspOk && (to || kind != kind_))
    {
        status = move(to ? &*to : nullptr, kind, tracks);
    }
    return status;
}

/// Converts a range to positions. An open start is the recording's start; its end when playing backwards.
RtspStatus RecordedPlay::locate(const RangeHeader& range, bool backwards, Position& out)
{
    const double duration = presentation().seconds;
    countsFromNtp_ = countsFromNtp(range);
    const double begin = range.begin ? npt(range.unit, *range.begin) : backwards ? duration : 0;
    const double end = range.end ? npt(range.unit, *range.end) : backwards ? 0 : duration;
    if (backwards ? begin < 0 || end > duration : begin >= duration || end <= std::max(begin, 0.0))
    {
        return rtspInvalidRange;
    }
    // A client knows the first frame's time in microseconds, and rounds them.
    constexpr double rounding = 2e-6;
    const auto inside = [duration](double position)
    { return position < rounding ? 0.0 : std::min(position, duration); };
    out = {inside(begin), inside(end)};
    return rtspOk;
}

/// Whether an absolute range is play time counted from NTP's epoch, 1900. Some players that only know
/// absolute ranges send that for recordings described in play time.
bool RecordedPlay::countsFromNtp(const RangeHeader& range)
{
    const auto length = std::chrono::ceil<RangeHeader::Position>(Seconds(presentation().seconds));
    const auto inside = [length](const std::optional<RangeHeader::Position>& time)
    { return !time || (*time >= ntpEpoch && *time <= ntpEpoch + length); };
    return range.unit == Unit::clock && (range.begin || range.end) && inside(range.begin) &&
           inside(range.end);
}

/// \param to  null: changes only the kind
RtspStatus RecordedPlay::move(const Position* to, int kind, const std::vector<std::string>& tracks)
{
    const Position position = to == nullptr ? Position() : *to;
    for (const std::string& track : tracks)
    {
        const int code =
            controller_->setPlayRange(sessionId_, track, position.begin, position.end, kind, to != nullptr);
        if (code != 0)
        {
            return StatusMap::ofCode(Step::control, code);
        }
    }
    kind_ = kind;
    return rtspOk;
}

RtspStatus RecordedPlay::setSpeed(const PlaySpeed& speed, const std::vector<std::string>& tracks)
{
    for (const std::string& track : tracks)
    {
        const int code = controller_->setSpeed(sessionId_, track, speed.scale, speed.speed);
        if (code != 0)
        {
            return StatusMap::ofCode(Step::control, code);
        }
    }
    speed_ = speed;
    return rtspOk;
}

RecordedPlay::Outcome RecordedPlay::outcome(Unit unit, const std::vector<std::string>& tracks)
{
    const Position now = played(tracks);
    Outcome out;
    const bool backwards = now.end < now.begin;
    out.begin = positionOf(unit, now.begin, backwards ? Bound::late : Bound::early);
    out.end = positionOf(unit, now.end, backwards ? Bound::early : Bound::late);
    out.speed = speed_;
    return out;
}

RtspStatus RecordedPlay::pauseAt(const RangeHeader& point, const std::vector<std::string>& tracks)
{
    const Position now = played(tracks);
    const double instant = npt(point.unit, point.begin.value_or(RangeHeader::Position(0)));
    if (instant < std::min(now.begin, now.end) || instant > std::max(now.begin, now.end))
    {
        return rtspInvalidRange;
    }
    for (const std::string& track : tracks)
    {
        const int code = controller_->setPauseRange(sessionId_, track, instant);
        if (code != 0)
        {
            return StatusMap::ofCode(Step::control, code);
        }
    }
    return rtspOk;
}

RecordedPlay::Position RecordedPlay::played(const std::vector<std::string>& tracks)
{
    Position out;
    bool first = true;
    for (const std::string& track : tracks)
    {
        Position one;
        if (controller_->getCurPlayRange(sessionId_, track, one.begin, one.end) == 0)
        {
            out.begin = first ? one.begin : std::min(out.begin, one.begin);
            out.end = first ? one.end : std::max(out.end, one.end);
            first = false;
        }
    }
    return out;
}

/// \returns seconds of normal play time
double RecordedPlay::npt(Unit unit, RangeHeader::Position position)
{
    if (unit == Unit::npt)
    {
        return Seconds(position).count();
    }
    // In microseconds first: nanoseconds of a client's year 9999 do not fit 64 bits.
    const Duration base = clockBase().time_since_epoch();
    const auto whole = std::chrono::floor<RangeHeader::Position>(base);
    return Seconds(position - whole).count() - Seconds(base - whole).count();
}

/// The absolute time of normal play time 0.
WallTime RecordedPlay::clockBase()
{
    return countsFromNtp_ ? WallTime(ntpEpoch) : presentation().begin;
}

/// Rounded once: the first frame is rarely at a whole microsecond. Players clip what is before the early bound.
RangeHeader::Position RecordedPlay::positionOf(Unit unit, double npt, Bound bound)
{
    constexpr Duration inaccuracy(
        10);  // of play time in seconds: what a client requested comes back as it was
    const Duration base = unit == Unit::clock ? clockBase().time_since_epoch() : Duration::zero();
    const Duration exact = base + durationOf(Seconds(npt));
    return bound == Bound::early ? std::chrono::floor<RangeHeader::Position>(exact + inaccuracy)
                                 : std::chrono::round<RangeHeader::Position>(exact);
}

const RecordedPlay::Presentation& RecordedPlay::presentation()
{
    if (!presentation_)
    {
        MediaInfo info;
        controller_->getMediaInfo(info);
        presentation_ = Presentation{WallTime(Duration(info.recordBeginTime)), info.recordSeconds};
    }
    return *presentation_;
}

}  // namespace refhost

#include "refhost/rtsp/RecordedPlay.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "hostapi/description/MediaInfo.h"
#include "refhost/rtsp/StatusMap.h"

namespace refhost
{
namespace
{

using Step = StatusMap::Step;
using Unit = RangeHeader::Unit;

constexpr double microseconds = 1e6;  // of a second
constexpr double nanoseconds = 1e9;
constexpr std::int64_t nsPerMicrosecond = 1000;

int kindOf(const PlayOrder& order)
{
    if (!order.replay)
    {
        return 0;
    }
    constexpr int unitMs = 10;
    const int distance =
        std::min<int>((order.keyFrameDistanceMs + unitMs - 1) / unitMs, playRangeLongestDistance);
    const int pictures = order.keyFramesOnly ? playRangeKeyPictures | distance << playRangeDistanceShift : 0;
    return playRangeReplay | (order.noRateControl ? playRangeUnpaced : 0) | pictures |
           order.sequence << playRangeSequenceShift;
}

}  // namespace

RecordedPlay::RecordedPlay(std::string sessionId, const SafePointer<IRTSPController>& controller)
    : sessionId_(std::move(sessionId)), controller_(controller)
{
}

RtspStatus RecordedPlay::prepare(const PlayOrder& order, bool playing, const std::vector<std::string>& tracks)
{
    if (!order.range && !order.scale && !order.speed && playing)
    {
        return rtspOk;
    }
    std::optional<Position> to;
    if (order.range && (order.range->begin || order.range->end))
    {
        to.emplace();
        const RtspStatus status = locate(*order.range, *to);
        if (status != rtspOk)
        {
            return status;
        }
    }
    const PlaySpeed speed = PlaySpeed::used(order.scale.value_or(1), order.speed.value_or(1));
    RtspStatus status = speed == speed_ ? rtspOk : setSpeed(speed, tracks);
    const int kind = kindOf(order);
    if (status == rtspOk && (to || kind != kind_))
    {
        status = move(to ? &*to : nullptr, kind, tracks);
    }
    return status;
}

/// Where in the recording a client's range is. One without a begin is from the recording's begin on.
RtspStatus RecordedPlay::locate(const RangeHeader& range, Position& out)
{
    const double duration = presentation().seconds;
    const double begin = range.begin ? std::max(npt(range.unit, *range.begin), 0.0) : 0;
    const double end = range.end ? npt(range.unit, *range.end) : duration;
    if (begin >= duration || end <= begin)
    {
        return rtspInvalidRange;
    }
    out = {begin, std::min(end, duration)};
    return rtspOk;
}

/// \param to  null: only the kind changes
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
    out.begin = timeOf(unit, now.begin);
    out.end = timeOf(unit, now.end);
    out.speed = speed_;
    return out;
}

RtspStatus RecordedPlay::pauseAt(const RangeHeader& point, const std::vector<std::string>& tracks)
{
    const Position now = played(tracks);
    const double instant = npt(point.unit, point.begin.value_or(0));
    if (instant < now.begin || instant > now.end)
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

double RecordedPlay::npt(Unit unit, std::int64_t time)
{
    if (unit == Unit::npt)
    {
        return static_cast<double>(time) / microseconds;
    }
    return static_cast<double>(time * nsPerMicrosecond - presentation().beginNs) / nanoseconds;
}

/// Microseconds, rounded once: the first frame is seldom at a whole one.
std::int64_t RecordedPlay::timeOf(Unit unit, double position)
{
    const std::int64_t baseNs = unit == Unit::clock ? presentation().beginNs : 0;
    return (baseNs + std::llround(position * nanoseconds) + nsPerMicrosecond / 2) / nsPerMicrosecond;
}

const RecordedPlay::Presentation& RecordedPlay::presentation()
{
    if (!presentation_)
    {
        MediaInfo info;
        controller_->getMediaInfo(info);
        presentation_ = Presentation{info.recordBeginTime, info.recordSeconds};
    }
    return *presentation_;
}

}  // namespace refhost

#include "refhost/playback/RecordedSource.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "refhost/base/Log.h"
#include "refhost/playback/RecordingReader.h"
#include "refhost/playback/ReverseReader.h"

namespace refhost
{
namespace
{

/// Successors that must be known before a frame's due time is: as many as encoders usually reorder.
constexpr std::size_t framesAhead = 4;
/// Max. units that wait for that.
constexpr std::size_t maxWaiting = 128;

std::size_t indexOf(bool video)
{
    return video ? 0 : 1;
}

std::optional<Codec> codecOfTrack(const PlaybackSource::Track& track)
{
    return track.payloadSize > 0 ? codecEncodedAs(track.encodingName) : std::nullopt;
}

/// Duration of a block of audio by its samples; 0 when the codec does not say.
Duration audioLength(const MediaFormat& format, const AccessUnit& unit)
{
    const CodecInfo& info = infoOf(format.codec);
    const int rate = info.clockRate > 0 ? info.clockRate : format.sampleRate;
    const std::size_t header = unit.headerSize(0);
    const AccessUnit::Packet& packet = unit.packets.front();
    const std::uint32_t samples = info.samplesIn(unit.bytes.data() + packet.offset + header,
                                                 packet.size - header, std::max(format.channels, 1));
    return rate > 0 ? RtpClock(static_cast<std::uint32_t>(rate)).span(samples) : Duration::zero();
}

}  // namespace

RecordedSource::RecordedSource(std::shared_ptr<const RecordingDirectory> directory, const HostClock& clock,
                               const Interval& interval)
    : directory_(std::move(directory)), clock_(clock), interval_(interval)
{
}

RecordedSource::~RecordedSource() = default;

bool RecordedSource::open(const Request& request)
{
    std::unique_ptr<Reading> reading = startReading(request);
    if (!reading)
    {
        return false;
    }
    preparePacking(request.video, packing_[indexOf(true)]);
    preparePacking(request.audio, packing_[indexOf(false)]);
    reading_ = std::move(reading);
    made_.clear();
    return true;
}

std::unique_ptr<RecordedSource::Reading> RecordedSource::startReading(const Request& request)
{
    if (directory_ && !streamId_)
    {
        streamId_ = directory_->streamOf(interval_.cameraId, interval_.begin, interval_.end);
    }
    if (!streamId_)
    {
        return nullptr;
    }
    auto reading = std::make_unique<Reading>();
    reading->request = request;
    // Backwards, the end is inclusive.
    reading->end = request.mirrored(request.end) + Duration(request.backwards ? 1 : 0);
    reading->done = {!codecOfTrack(request.video), request.backwards || !codecOfTrack(request.audio)};
    reading->reader = makeReader(request);
    if (!reading->reader)
    {
        return nullptr;
    }
    readOne(*reading);
    const bool found = !reading->waiting.empty() && reading->waiting.front().time < reading->end;
    return found ? std::move(reading) : nullptr;
}

/// \returns null where nothing can be read
std::unique_ptr<UnitReader> RecordedSource::makeReader(const Request& request) const
{
    const auto video = codecOfTrack(request.video);
    if (request.backwards)
    {
        if (!video)
        {
            return nullptr;
        }
        const ReverseReader::Request readerRequest{interval_.cameraId, *streamId_,          request.from,
                                                   request.end,        request.keyDistance, *video};
        return std::make_unique<ReverseReader>(directory_, readerRequest);
    }
    RecordingReader::Request readerRequest;
    readerRequest.cameraId = interval_.cameraId;
    readerRequest.streamId = *streamId_;
    readerRequest.from = request.from;
    readerRequest.end = request.end;
    readerRequest.keyFramesOnly = request.keyFramesOnly;
    readerRequest.keyDistance = request.keyDistance;
    readerRequest.video = video;
    readerRequest.audio = codecOfTrack(request.audio);
    return std::make_unique<RecordingReader>(directory_, clock_, readerRequest);
}

void RecordedSource::preparePacking(const Track& track, Packing& packing)
{
    const auto codec = codecOfTrack(track);
    if (!codec || (packing.packetizer && packing.codec == *codec && packing.payloadSize == track.payloadSize))
    {
        return;
    }
    packing = {Packetizer::make(*codec, track.payloadSize), *codec, track.payloadSize};
}

PlaybackSource::Result RecordedSource::read(PlaybackUnit& out)
{
    while (made_.empty())
    {
        Reading& reading = *reading_;
        if (reading.done[0] && reading.done[1])
        {
            return Result::end;
        }
        Outlook outlook = outlookOf(reading);
        if (!outlook.enough && reading.state == UnitReader::Result::unit)
        {
            readOne(reading);
            continue;
        }
        if (reading.waiting.empty())
        {
            const bool later = reading.state == UnitReader::Result::later;
            reading.state = later ? UnitReader::Result::unit : reading.state;
            return later ? Result::later : Result::end;
        }
        if (takesHead(reading, outlook))
        {
            packetize(outlook);
        }
        reading.waiting.pop_front();
    }
    out = std::move(made_.front());
    made_.pop_front();
    return Result::unit;
}

void RecordedSource::readOne(Reading& reading)
{
    Waiting next;
    reading.state = reading.reader->read(next.unit);
    if (reading.state != UnitReader::Result::unit)
    {
        return;
    }
    next.range = reading.reader->range();
    next.format = reading.reader->track(next.unit.video).format;
    next.time = reading.request.mirrored(next.unit.date);
    reading.waiting.push_back(std::move(next));
}

RecordedSource::Outlook RecordedSource::outlookOf(const Reading& reading)
{
    Outlook outlook;
    if (reading.waiting.empty())
    {
        return outlook;
    }
    const Waiting& head = reading.waiting.front();
    const std::size_t needed = head.unit.video && !reading.request.keyFramesOnly ? framesAhead : 1;
    std::size_t following = 0;
    outlook.due = head.time;
    outlook.enough = reading.waiting.size() >= maxWaiting;
    for (auto next = std::next(reading.waiting.begin()); next != reading.waiting.end(); ++next)
    {
        if (next->range != head.range)
        {
            outlook.enough = true;
            break;
        }
        if (next->unit.video != head.unit.video)
        {
            continue;
        }
        ++following;
        outlook.due = std::min(outlook.due, next->time);
        if (next->time > head.time && (!outlook.next || next->time < *outlook.next))
        {
            outlook.next = next->time;
        }
        outlook.last = outlook.last && next->time >= reading.end;
    }
    outlook.enough = outlook.enough || following >= needed;
    outlook.last = outlook.last && reading.state != UnitReader::Result::later;
    return outlook;
}

/// Whether the first waiting unit is before the end; fixes its due time.
bool RecordedSource::takesHead(Reading& reading, Outlook& outlook)
{
    const Waiting& head = reading.waiting.front();
    const std::size_t index = indexOf(head.unit.video);
    if (outlook.due >= reading.end)
    {
        reading.done[index] = true;
        // The other track may have no units left.
        const bool farBehind = head.time - reading.end > std::chrono::seconds(1);
        reading.done = {reading.done[0] || farBehind, reading.done[1] || farBehind};
    }
    if (reading.done[index])
    {
        return false;
    }
    if (head.range != reading.range)
    {
        reading.range = head.range;
        reading.lastDue = {};
    }
    outlook.due = std::max(outlook.due, reading.lastDue[index]);
    reading.lastDue[index] = outlook.due;
    return true;
}

void RecordedSource::packetize(const Outlook& outlook)
{
    Waiting& head = reading_->waiting.front();
    const bool video = head.unit.video;
    const Duration duration = lengthOf(head, outlook);
    EncodedUnit unit;
    unit.format = head.format;
    unit.bytes = std::move(head.unit.bytes);
    unit.captureTime = MonotonicTime(head.time.time_since_epoch());
    unit.keyFrame = head.unit.key;
    // Whoever sends the packets sets their timestamps.
    constexpr std::uint32_t noTimestamp = 0;
    std::vector<std::shared_ptr<AccessUnit>> packed;
    if (const char* const why = packing_[indexOf(video)].packetizer->pack(unit, noTimestamp, packed))
    {
        Log::debug("a unit of a recording is skipped: {}", why);
    }
    for (const std::shared_ptr<AccessUnit>& each : packed)
    {
        Outlook own = outlook;
        own.last = outlook.last && each == packed.back();
        const Duration length = video ? Duration::zero() : audioLength(*unit.format, *each);
        add(each, head, own, length > Duration::zero() ? length : duration);
    }
}

Duration RecordedSource::lengthOf(const Waiting& head, const Outlook& outlook)
{
    Duration& usual = usualLength_[indexOf(head.unit.video)];
    const bool keysOnly = reading_->request.keyFramesOnly;
    if (head.unit.duration > Duration::zero() && !keysOnly)
    {
        usual = head.unit.duration;
    }
    else if (outlook.next)
    {
        usual = *outlook.next - head.time;
    }
    return usual;
}

void RecordedSource::add(const AccessUnitPtr& unit, const Waiting& from, const Outlook& outlook,
                         Duration length)
{
    const bool video = from.unit.video;
    PlaybackUnit made;
    made.unit = unit;
    made.video = video;
    made.key = !video || from.unit.key;
    made.last = outlook.last;
    made.media = video ? from.time : WallTime(unit->captureTime.time_since_epoch());
    made.wall = reading_->request.mirrored(made.media);
    made.due = video ? outlook.due : made.media;
    made.duration = std::clamp(reading_->end - made.media, Duration::zero(), length);
    made.range = from.range;
    made_.push_back(std::move(made));
}

}  // namespace refhost

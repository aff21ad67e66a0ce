#include "refhost/fragments/HlsWindow.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "refhost/base/Decimal.h"
#include "refhost/fragments/FragmentWriter.h"

namespace refhost
{
namespace
{

constexpr char initKind = 'i';
constexpr char segmentKind = 's';
constexpr char partKind = 'p';
constexpr const char* mediaEnding = ".m4s";
constexpr const char* initEnding = ".mp4";
constexpr Duration partGrain = std::chrono::milliseconds(10);
// A segment's duration, rounded, must not exceed the target (RFC 8216, section 4.3.3.1).
constexpr Duration roundedAway = std::chrono::milliseconds(400);

std::string dateText(WallTime date)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(date.time_since_epoch());
    const auto rest = std::chrono::floor<std::chrono::milliseconds>(date.time_since_epoch() - seconds);
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(static_cast<std::time_t>(seconds.count())),
                       rest.count());
}

/// The end of a file's name, after the window's name and the kind.
std::optional<std::uint64_t> numberOf(std::string_view name, std::string_view ending)
{
    if (name.size() <= ending.size() || name.substr(name.size() - ending.size()) != ending)
    {
        return std::nullopt;
    }
    return parseDecimal<std::uint64_t>(name.substr(0, name.size() - ending.size()));
}

}  // namespace

HlsWindow::HlsWindow(std::string name, std::uint64_t first)
    : name_(std::move(name)), nextSegment_(first), era_(first)
{
}

void HlsWindow::begin(const FragmentStream::Description& description)
{
    description_ = description;
    init_ = std::make_shared<const Init>(
        Init{nameOf(initKind, ++inits_, initEnding),
             std::make_shared<const std::vector<std::uint8_t>>(
                 FragmentWriter::init(description.video.get(), description.audio.get()))});
    breakOff();
}

/// What follows does not continue what came, and begins with a key frame.
void HlsWindow::breakOff()
{
    if (open_ && target_ > 0)
    {
        closeSegment(*end_);
    }
    else if (open_)
    {
        // Too little to know anything by. Nobody knows of it.
        bytes_ -= open_->bytes;
        nextSegment_ = open_->number;
        open_.reset();
    }
    part_ = Part();
    end_.reset();
    discontinuous_ = true;
}

bool HlsWindow::add(const FragmentStream::Next& next, WallTime captured)
{
    if (next.video || description_.video == nullptr)
    {
        return addTimed(next, captured);
    }
    if (open_)
    {
        append(next);
    }
    return false;
}

/// Adds a fragment of the track that times are of: video where there is some.
bool HlsWindow::addTimed(const FragmentStream::Next& next, WallTime captured)
{
    const bool key = next.keyFrame || description_.video == nullptr;
    const Duration jump = end_ ? next.decode - *end_ : Duration::zero();
    bool changed = false;
    bool opens = key;
    if (jump > maxGap || jump < -maxGap)
    {
        breakOff();
        changed = true;
    }
    else if (open_ && isCut(next))
    {
        closeSegment(next.decode);
        changed = true;
        opens = true;
    }
    if (!open_ && opens)
    {
        openSegment(next, captured);
    }
    if (open_)
    {
        changed = addFrame(next, key) || changed;
    }
    if (changed && target_ > 0)
    {
        render();
    }
    return changed;
}

/// \returns whether parts were completed
bool HlsWindow::addFrame(const FragmentStream::Next& next, bool key)
{
    bool changed = false;
    if (part_.timed && next.decode + next.duration > part_.start + partTarget_)
    {
        // Frames are missing.
        changed = closePart();
    }
    if (!part_.timed)
    {
        part_.timed = true;
        part_.start = next.decode;
    }
    part_.independent = part_.independent || key;
    part_.end = next.decode + next.duration;
    end_ = part_.end;
    ++open_->frames;
    append(next);
    if (part_.end + next.duration > part_.start + partTarget_)
    {
        changed = closePart() || changed;
    }
    return changed;
}

Duration HlsWindow::maxLength() const
{
    return (target_ > 0 ? Duration(std::chrono::seconds(target_)) : maxSegment) + roundedAway;
}

/// Whether a frame begins the next segment.
bool HlsWindow::isCut(const FragmentStream::Next& next) const
{
    const Duration half = Duration(std::chrono::seconds(target_)) / 2;
    const Duration length = next.decode - open_->start;
    const bool key = next.keyFrame || description_.video == nullptr;
    // Cameras are not exact: a key frame a little early is as good.
    return (key && length >= std::max(minSegment, half) * 9 / 10) || length + next.duration > maxLength() ||
           open_->bytes > maxSegmentBytes;
}

void HlsWindow::openSegment(const FragmentStream::Next& next, WallTime captured)
{
    if (std::exchange(discontinuous_, false) && !closed_.empty())
    {
        ++era_;
    }
    Segment segment;
    segment.number = nextSegment_++;
    segment.firstPart = nextPart_;
    segment.era = era_;
    segment.init = init_;
    segment.captured = captured;
    segment.start = next.decode;
    segment.independent = next.keyFrame || description_.video == nullptr;
    // Audio that came since the last frame.
    for (const FragmentStream::Bytes& fragment : part_.fragments)
    {
        segment.bytes += fragment->size();
        bytes_ += fragment->size();
    }
    open_ = std::move(segment);
}

/// Completes the open segment. What has no frame yet is left for the next one.
void HlsWindow::closeSegment(Duration end)
{
    closePart();
    for (const FragmentStream::Bytes& fragment : part_.fragments)
    {
        open_->bytes -= fragment->size();
        bytes_ -= fragment->size();
    }
    open_->length = std::clamp<Duration>(end - open_->start, std::chrono::milliseconds(1), maxLength());
    closed_.push_back(*std::exchange(open_, std::nullopt));
    if (target_ == 0)
    {
        setTargets();
    }
    trim();
}

bool HlsWindow::closePart()
{
    if (!part_.timed)
    {
        return false;
    }
    open_->parts.push_back(std::exchange(part_, Part()));
    ++nextPart_;
    return true;
}

/// What the first segment was like, the others will be, with a little room for cameras that are not exact.
void HlsWindow::setTargets()
{
    const Segment& first = closed_.front();
    const auto whole = std::chrono::ceil<std::chrono::seconds>(first.length);
    target_ = static_cast<int>(std::min<std::int64_t>(
        whole.count() + 1, std::chrono::duration_cast<std::chrono::seconds>(maxSegment).count()));
    Duration longest{};
    for (const Part& part : first.parts)
    {
        longest = std::max(longest, part.end - part.start);
    }
    partTarget_ = (longest / partGrain + 1) * partGrain;
}

void HlsWindow::trim()
{
    while (closed_.size() > maxKept || (bytes_ > maxBytes && closed_.size() > 1))
    {
        bytes_ -= closed_.front().bytes;
        closed_.pop_front();
    }
}

void HlsWindow::append(const FragmentStream::Next& next)
{
    open_->bytes += next.fragment->size();
    bytes_ += next.fragment->size();
    part_.fragments.push_back(next.fragment);
}

HlsFound HlsWindow::find(const HlsQuery& query) const
{
    HlsFound found;
    if (query.kind == HlsQuery::Kind::file)
    {
        found = findFile(query.name);
    }
    else
    {
        found.state = stateOf(query);
        if (found.state == HlsFound::State::there)
        {
            found.text = query.kind == HlsQuery::Kind::playlist
                             ? playlist_
                             : std::make_shared<const std::string>(multivariant());
        }
    }
    found.target = target_;
    return found;
}

/// Of a playlist (draft-pantos-hls-rfc8216bis, section 6.2.5.2).
HlsFound::State HlsWindow::stateOf(const HlsQuery& query) const
{
    using State = HlsFound::State;
    if (query.part && !query.segment)
    {
        return State::invalid;
    }
    if (playlist_ == nullptr || closed_.empty())
    {
        return State::awaited;
    }
    if (!query.segment)
    {
        return State::there;
    }
    std::uint64_t segment = *query.segment;
    const std::uint64_t last = closed_.back().number;
    if (segment > last + 2)
    {
        return State::invalid;
    }
    if (segment < last || (segment == last && !query.part))
    {
        return State::there;
    }
    if (!query.part)
    {
        return State::awaited;
    }
    std::uint64_t part = *query.part;
    if (segment == last)
    {
        if (part < closed_.back().parts.size())
        {
            return State::there;
        }
        // A part that never came is the first one of the next segment.
        segment = last + 1;
        part = 0;
    }
    const bool present = open_ && open_->number == segment && part < open_->parts.size();
    return present ? State::there : State::awaited;
}

HlsFound HlsWindow::findFile(std::string_view name) const
{
    const std::string head = name_ + '-';
    if (name.size() <= head.size() || name.substr(0, head.size()) != head)
    {
        return {};
    }
    const char kind = name[head.size()];
    const std::string_view rest = name.substr(head.size() + 1);
    HlsFound found;
    if (kind == initKind)
    {
        for (const Segment& segment : closed_)
        {
            if (segment.init->name == name)
            {
                return {HlsFound::State::there, nullptr, {segment.init->bytes}};
            }
        }
        if (init_ != nullptr && init_->name == name)
        {
            return {HlsFound::State::there, nullptr, {init_->bytes}};
        }
        return {};
    }
    const auto number = numberOf(rest, mediaEnding);
    if (kind == partKind && number)
    {
        return findPart(*number);
    }
    const Segment* const segment = kind == segmentKind && number ? segmentAt(*number) : nullptr;
    if (segment == nullptr)
    {
        return {};
    }
    found.state = HlsFound::State::there;
    for (const Part& part : segment->parts)
    {
        found.bytes.insert(found.bytes.end(), part.fragments.begin(), part.fragments.end());
    }
    return found;
}

HlsFound HlsWindow::findPart(std::uint64_t number) const
{
    if (number == nextPart_)
    {
        return {HlsFound::State::awaited};
    }
    const auto in = [number](const Segment& segment)
    { return number >= segment.firstPart && number - segment.firstPart < segment.parts.size(); };
    const auto found = std::find_if(closed_.begin(), closed_.end(), in);
    const Segment* const segment = found != closed_.end() ? &*found : open_ && in(*open_) ? &*open_ : nullptr;
    if (segment == nullptr)
    {
        return {};
    }
    const auto index = static_cast<std::size_t>(number - segment->firstPart);
    return {HlsFound::State::there, nullptr, segment->parts[index].fragments};
}

/// \returns null when it is not whole yet, or not there any more
const HlsWindow::Segment* HlsWindow::segmentAt(std::uint64_t number) const
{
    if (closed_.empty() || number < closed_.front().number || number > closed_.back().number)
    {
        return nullptr;
    }
    return &closed_[static_cast<std::size_t>(number - closed_.front().number)];
}

std::string HlsWindow::nameOf(char kind, std::uint64_t number, const char* ending) const
{
    return fmt::format("{}-{}{}{}", name_, kind, number, ending);
}

std::size_t HlsWindow::firstListed() const
{
    return closed_.size() > maxListed ? closed_.size() - maxListed : 0;
}

void HlsWindow::render()
{
    const std::size_t first = firstListed();
    Duration length{};
    bool independent = !open_ || open_->independent;
    for (std::size_t i = first; i < closed_.size(); ++i)
    {
        length += closed_[i].length;
        independent = independent && closed_[i].independent;
    }
    std::string text = fmt::format(
        "#EXTM3U\n#EXT-X-VERSION:6\n#EXT-X-TARGETDURATION:{}\n"
        "#EXT-X-SERVER-CONTROL:CAN-BLOCK-RELOAD=YES,PART-HOLD-BACK={:.3f}\n#EXT-X-PART-INF:PART-TARGET={:.3f}"
        "\n"
        "#EXT-X-MEDIA-SEQUENCE:{}\n#EXT-X-DISCONTINUITY-SEQUENCE:{}\n{}",
        target_, 3 * secondsOf(partTarget_), secondsOf(partTarget_), closed_[first].number,
        closed_[first].era, independent ? "#EXT-X-INDEPENDENT-SEGMENTS\n" : "");
    const Segment* before = nullptr;
    const auto start = [&](const Segment& segment)
    {
        if (before != nullptr && before->era != segment.era)
        {
            text += "#EXT-X-DISCONTINUITY\n";
        }
        if (before == nullptr || before->init != segment.init)
        {
            text += "#EXT-X-MAP:URI=\"media/" + segment.init->name + "\"\n";
        }
        text += "#EXT-X-PROGRAM-DATE-TIME:" + dateText(segment.captured) + "\n";
        before = &segment;
    };
    const Duration partsOf = 3 * Duration(std::chrono::seconds(target_));
    for (std::size_t i = first; i < closed_.size(); ++i)
    {
        start(closed_[i]);
        // Clients that far behind take whole segments.
        if (length <= partsOf)
        {
            renderParts(closed_[i], text);
        }
        text += fmt::format("#EXTINF:{:.5f},\nmedia/{}\n", secondsOf(closed_[i].length),
                            nameOf(segmentKind, closed_[i].number, mediaEnding));
        length -= closed_[i].length;
    }
    if (open_ && !open_->parts.empty())
    {
        start(*open_);
        renderParts(*open_, text);
    }
    text += "#EXT-X-PRELOAD-HINT:TYPE=PART,URI=\"media/" + nameOf(partKind, nextPart_, mediaEnding) + "\"\n";
    playlist_ = std::make_shared<const std::string>(std::move(text));
}

void HlsWindow::renderParts(const Segment& segment, std::string& out) const
{
    std::uint64_t number = segment.firstPart;
    for (const Part& part : segment.parts)
    {
        out +=
            fmt::format("#EXT-X-PART:DURATION={:.5f},URI=\"media/{}\"{}\n",
                        secondsOf(std::min(part.end - part.start, partTarget_)),
                        nameOf(partKind, number++, mediaEnding), part.independent ? ",INDEPENDENT=YES" : "");
    }
}

std::string HlsWindow::multivariant() const
{
    double peak = 0;
    double sum = 0;
    double length = 0;
    double frames = 0;
    for (const Segment& segment : closed_)
    {
        const double bits = 8.0 * static_cast<double>(segment.bytes);
        peak = std::max(peak, bits / secondsOf(segment.length));
        sum += bits;
        length += secondsOf(segment.length);
        frames += static_cast<double>(segment.frames);
    }
    // No segment of a live stream is the last one: some room for those to come.
    constexpr double room = 1.25;
    const MediaFormat* const video = description_.video.get();
    const std::string type = FragmentWriter::mimeType(video, description_.audio.get());
    const std::size_t codecs = type.find('"');
    std::string text = fmt::format(
        "#EXTM3U\n#EXT-X-VERSION:6\n#EXT-X-STREAM-INF:BANDWIDTH={:.0f},AVERAGE-BANDWIDTH={:.0f},CODECS={}",
        std::ceil(peak * room), std::ceil(sum / length), type.substr(codecs));
    if (video != nullptr)
    {
        text +=
            fmt::format(",RESOLUTION={}x{},FRAME-RATE={:.3f}", video->width, video->height, frames / length);
    }
    return text + "\nlive.m3u8\n";
}

std::size_t HlsWindow::bytes() const
{
    return bytes_;
}

}  // namespace refhost

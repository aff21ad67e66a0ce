#include "refhost/fragments/FragmentWriter.h"

#include <algorithm>

#include "refhost/mp4/MovieBoxes.h"
#include "refhost/mp4/Mp4Writer.h"
#include "refhost/mp4/SampleEntry.h"

namespace refhost
{
namespace
{

constexpr std::uint32_t sampleOfKeyFrame = 0x02000000;  // depends on no other one
constexpr std::uint32_t sampleOfDelta = 0x01010000;     // depends on others, is no sync sample

std::uint32_t trackOf(const MediaFormat& format)
{
    return isVideo(format.codec) ? FragmentWriter::videoTrack : FragmentWriter::audioTrack;
}

void addEmptyTable(Mp4Writer& out, const char* type)
{
    const Mp4Writer::Box box = out.open(type, 0, 0);
    out.add32(0);
    out.close(box);
}

void addTrack(Mp4Writer& out, const MediaFormat& format)
{
    const MovieBoxes::Track track{trackOf(format), {}, 0, 0, FragmentWriter::timescale, &format};
    const Mp4Writer::Box box = out.open("trak");
    MovieBoxes::addTrackHeader(out, track);
    const Mp4Writer::Box media = out.open("mdia");
    MovieBoxes::addMediaHead(out, track);
    const Mp4Writer::Box information = out.open("minf");
    MovieBoxes::addInformationHead(out, track);
    const Mp4Writer::Box table = out.open("stbl");
    const Mp4Writer::Box descriptions = out.open("stsd", 0, 0);
    out.add32(1);
    SampleEntry::write(out, format);
    out.close(descriptions);
    addEmptyTable(out, "stts");
    addEmptyTable(out, "stsc");
    const Mp4Writer::Box sizes = out.open("stsz", 0, 0);
    out.addZeros(8);
    out.close(sizes);
    addEmptyTable(out, "stco");
    out.close(table);
    out.close(information);
    out.close(media);
    out.close(box);
}

/// What samples are when their fragment does not say otherwise, which it does.
void addDefaults(Mp4Writer& out, const MediaFormat& format)
{
    const Mp4Writer::Box box = out.open("trex", 0, 0);
    out.add32(trackOf(format));
    out.add32(1);  // sample description
    out.addZeros(12);
    out.close(box);
}

void addProducerTime(Mp4Writer& out, std::uint32_t track, WallTime captured, std::int64_t presented)
{
    constexpr std::uint32_t capture = 8;  // the time is that of the capture
    const Mp4Writer::Box box = out.open("prft", 1, capture);
    out.add32(track);
    out.add64(NtpTime(captured).bits());
    out.add64(static_cast<std::uint64_t>(presented));
    out.close(box);
}

}  // namespace

std::int64_t FragmentWriter::ticks(Duration time)
{
    // Whole seconds apart, so that nothing overflows before the year 2262.
    const auto whole = std::chrono::floor<std::chrono::seconds>(time);
    const std::int64_t rest = (time - whole).count();
    return whole.count() * timescale + (rest * timescale + nanosecondsPerSecond / 2) / nanosecondsPerSecond;
}

bool FragmentWriter::canHold(const MediaFormat& format)
{
    return !SampleEntry::codecString(format).empty();
}

std::string FragmentWriter::mimeType(const MediaFormat* video, const MediaFormat* audio)
{
    std::string codecs;
    for (const MediaFormat* format : {video, audio})
    {
        if (format != nullptr)
        {
            codecs += codecs.empty() ? "" : ",";
            codecs += SampleEntry::codecString(*format);
        }
    }
    return (video != nullptr ? "video/mp4; codecs=\"" : "audio/mp4; codecs=\"") + codecs + "\"";
}

std::vector<std::uint8_t> FragmentWriter::init(const MediaFormat* video, const MediaFormat* audio)
{
    Mp4Writer out;
    const Mp4Writer::Box type = out.open("ftyp");
    out.addText("iso6");
    out.add32(0);
    out.addText("iso6mp41");
    out.close(type);
    const Mp4Writer::Box movie = out.open("moov");
    MovieBoxes::addMovieHeader(out, {}, timescale, 0);
    for (const MediaFormat* format : {video, audio})
    {
        if (format != nullptr)
        {
            addTrack(out, *format);
        }
    }
    const Mp4Writer::Box extends = out.open("mvex");
    for (const MediaFormat* format : {video, audio})
    {
        if (format != nullptr)
        {
            addDefaults(out, *format);
        }
    }
    out.close(extends);
    out.close(movie);
    return out.take();
}

std::vector<std::uint8_t> FragmentWriter::fragment(const EncodedUnit& unit, const Place& place)
{
    constexpr std::uint32_t baseIsFragment = 0x020000;
    constexpr std::uint32_t offsetDurationSizeFlagsComposition = 0xf01;
    constexpr std::uint32_t headOfMediaData = 8;
    const std::uint32_t track = trackOf(*unit.format);
    const std::int64_t decode = ticks(place.decode);
    const std::int64_t presented = ticks(place.decode + (unit.captureTime - unit.decodeTime));
    const std::int64_t end = ticks(place.decode + place.duration);

    Mp4Writer out;
    out.reserve(unit.bytes.size() + 256);
    addProducerTime(out, track, place.captured, presented);
    const std::size_t start = out.size();
    const Mp4Writer::Box fragment = out.open("moof");
    const Mp4Writer::Box head = out.open("mfhd", 0, 0);
    out.add32(place.sequence);
    out.close(head);
    const Mp4Writer::Box part = out.open("traf");
    const Mp4Writer::Box trackHead = out.open("tfhd", 0, baseIsFragment);
    out.add32(track);
    out.close(trackHead);
    const Mp4Writer::Box time = out.open("tfdt", 1, 0);
    out.add64(static_cast<std::uint64_t>(std::max<std::int64_t>(decode, 0)));
    out.close(time);
    const Mp4Writer::Box run = out.open("trun", 1, offsetDurationSizeFlagsComposition);
    out.add32(1);
    const std::size_t offsetAt = out.size();
    out.add32(0);
    out.add32(static_cast<std::uint32_t>(end - decode));
    out.add32(static_cast<std::uint32_t>(unit.bytes.size()));
    out.add32(unit.keyFrame ? sampleOfKeyFrame : sampleOfDelta);
    out.add32(static_cast<std::uint32_t>(presented - decode));
    out.close(run);
    out.close(part);
    out.close(fragment);
    out.set32(offsetAt, static_cast<std::uint32_t>(out.size() - start + headOfMediaData));
    const Mp4Writer::Box media = out.open("mdat");
    out.addBytes(unit.bytes);
    out.close(media);
    return out.take();
}

}  // namespace refhost

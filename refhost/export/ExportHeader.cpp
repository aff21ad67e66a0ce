#include "refhost/export/ExportHeader.h"

#include <algorithm>

#include "refhost/mp4/SampleEntry.h"

namespace refhost
{
namespace
{

constexpr std::uint32_t movieTimescale = 1000;
constexpr std::uint64_t mediaHead = 16;

}  // namespace

std::vector<std::uint8_t> ExportHeader::write(const ExportPlan& plan, std::vector<Chunk>& chunks,
                                              std::uint64_t mediaSize)
{
    ExportHeader header(plan, chunks);
    Mp4Writer& out = header.out_;
    const Mp4Writer::Box type = out.open("ftyp");
    out.addText("isom");
    out.add32(0x200);
    out.addText("isomiso2mp41qt  ");
    out.close(type);
    header.addMovie();
    // A size of 64 bits for every file, so that the head has one length.
    out.add32(1);
    out.addText("mdat");
    out.add64(mediaHead + mediaSize);
    const std::uint64_t start = out.size();
    for (Chunk& chunk : chunks)
    {
        chunk.offset += start;
        std::size_t& place = chunk.video ? header.videoOffsetsAt_ : header.audioOffsetsAt_;
        out.set64(place, chunk.offset);
        place += sizeof(std::uint64_t);
    }
    return out.take();
}

void ExportHeader::addMovie()
{
    const Mp4Writer::Box movie = out_.open("moov");
    std::int64_t length = 0;
    for (const bool video : {true, false})
    {
        const ExportTrack::Edit edit = plan_.track(video).edit(plan_.length());
        length = std::max(length, edit.length > 0 ? edit.lead + edit.length : 0);
    }
    MovieBoxes::addMovieHeader(out_, plan_.request().begin, movieTimescale,
                               static_cast<std::uint64_t>(length));
    addTrack(true);
    addTrack(false);
    out_.close(movie);
}

void ExportHeader::addTrack(bool video)
{
    const ExportTrack& track = plan_.track(video);
    if (track.count() == 0)
    {
        return;
    }
    const ExportTrack::Edit edit = track.edit(plan_.length());
    // Files of the same recording are the same, so they are dated by it.
    const MovieBoxes::Track boxes{
        video ? 1U : 2U, plan_.request().begin, static_cast<std::uint64_t>(edit.lead + edit.length),
        track.length(),  track.timescale(),     track.formats().front().get()};
    const Mp4Writer::Box box = out_.open("trak");
    MovieBoxes::addTrackHeader(out_, boxes);
    addEdits(edit);
    addMedia(track, boxes);
    out_.close(box);
}

void ExportHeader::addEdits(const ExportTrack::Edit& edit)
{
    constexpr std::uint32_t rate = 0x10000;
    const Mp4Writer::Box box = out_.open("edts");
    const Mp4Writer::Box list = out_.open("elst", 1, 0);
    out_.add32(edit.lead > 0 ? 2 : 1);
    if (edit.lead > 0)
    {
        out_.add64(static_cast<std::uint64_t>(edit.lead));
        out_.add64(static_cast<std::uint64_t>(-1));  // no media
        out_.add32(rate);
    }
    out_.add64(static_cast<std::uint64_t>(edit.length));
    out_.add64(static_cast<std::uint64_t>(edit.mediaTime));
    out_.add32(rate);
    out_.close(list);
    out_.close(box);
}

void ExportHeader::addMedia(const ExportTrack& track, const MovieBoxes::Track& boxes)
{
    const Mp4Writer::Box media = out_.open("mdia");
    MovieBoxes::addMediaHead(out_, boxes);
    const Mp4Writer::Box information = out_.open("minf");
    MovieBoxes::addInformationHead(out_, boxes);
    const Mp4Writer::Box table = out_.open("stbl");
    addDescriptions(track);
    addSteps("stts", track.durations());
    addSteps("ctts", track.offsets());
    addKeys(track);
    addChunkTable(track);
    addSizes(track);
    addOffsets(track);
    out_.close(table);
    out_.close(information);
    out_.close(media);
}

void ExportHeader::addDescriptions(const ExportTrack& track)
{
    const Mp4Writer::Box box = out_.open("stsd", 0, 0);
    out_.add32(static_cast<std::uint32_t>(track.formats().size()));
    for (const auto& format : track.formats())
    {
        SampleEntry::write(out_, *format);
    }
    out_.close(box);
}

void ExportHeader::addSteps(const char* type, const std::vector<ExportTrack::Step>& steps)
{
    if (steps.empty())
    {
        return;
    }
    const Mp4Writer::Box box = out_.open(type, 0, 0);
    out_.add32(static_cast<std::uint32_t>(steps.size()));
    for (const ExportTrack::Step& step : steps)
    {
        out_.add32(step.count);
        out_.add32(step.ticks);
    }
    out_.close(box);
}

/// Without this table every sample is a key frame.
void ExportHeader::addKeys(const ExportTrack& track)
{
    const std::vector<bool>& keys = track.keys();
    const auto count = std::count(keys.begin(), keys.end(), true);
    if (static_cast<std::size_t>(count) == keys.size())
    {
        return;
    }
    const Mp4Writer::Box box = out_.open("stss", 0, 0);
    out_.add32(static_cast<std::uint32_t>(count));
    for (std::size_t i = 0; i < keys.size(); ++i)
    {
        if (keys[i])
        {
            out_.add32(static_cast<std::uint32_t>(i + 1));
        }
    }
    out_.close(box);
}

void ExportHeader::addChunkTable(const ExportTrack& track)
{
    const Mp4Writer::Box box = out_.open("stsc", 0, 0);
    const std::size_t countAt = out_.size();
    out_.add32(0);
    std::uint32_t number = 0;
    std::uint32_t entries = 0;
    const Chunk* before = nullptr;
    for (const Chunk& chunk : chunks_)
    {
        if (chunk.video != track.isVideo())
        {
            continue;
        }
        ++number;
        if (before == nullptr || before->count != chunk.count || before->description != chunk.description)
        {
            ++entries;
            out_.add32(number);
            out_.add32(chunk.count);
            out_.add32(chunk.description + 1);
        }
        before = &chunk;
    }
    out_.set32(countAt, entries);
    out_.close(box);
}

void ExportHeader::addSizes(const ExportTrack& track)
{
    const Mp4Writer::Box box = out_.open("stsz", 0, 0);
    out_.add32(0);  // each has a size of its own
    out_.add32(static_cast<std::uint32_t>(track.count()));
    for (std::size_t i = 0; i < track.count(); ++i)
    {
        out_.add32(track.place(i).size);
    }
    out_.close(box);
}

void ExportHeader::addOffsets(const ExportTrack& track)
{
    const auto count = std::count_if(chunks_.begin(), chunks_.end(),
                                     [&](const Chunk& chunk) { return chunk.video == track.isVideo(); });
    const Mp4Writer::Box box = out_.open("co64", 0, 0);
    out_.add32(static_cast<std::uint32_t>(count));
    (track.isVideo() ? videoOffsetsAt_ : audioOffsetsAt_) = out_.size();
    out_.addZeros(static_cast<std::size_t>(count) * sizeof(std::uint64_t));
    out_.close(box);
}

}  // namespace refhost

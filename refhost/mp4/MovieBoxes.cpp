#include "refhost/mp4/MovieBoxes.h"

#include <algorithm>

namespace refhost
{
namespace
{

constexpr std::uint32_t undetermined = 0x55c4;  // language "und"

/// Twice the date: of creation and of change. MP4 counts from 1904.
void addDates(Mp4Writer& out, WallTime date)
{
    constexpr std::int64_t secondsFrom1904To1970 = 2'082'844'800;
    const auto since1904 =
        static_cast<std::uint64_t>(std::max<std::int64_t>(unixSeconds(date) + secondsFrom1904To1970, 0));
    out.add64(since1904);
    out.add64(since1904);
}

}  // namespace

void MovieBoxes::addMovieHeader(Mp4Writer& out, WallTime created, std::uint32_t timescale,
                                std::uint64_t length)
{
    const Mp4Writer::Box box = out.open("mvhd", 1, 0);
    addDates(out, created);
    out.add32(timescale);
    out.add64(length);
    out.add32(0x10000);  // rate 1
    out.add16(0x100);    // volume 1
    out.addZeros(10);
    out.addMatrix();
    out.addZeros(24);
    out.add32(3);  // next track
    out.close(box);
}

void MovieBoxes::addTrackHeader(Mp4Writer& out, const Track& track)
{
    constexpr std::uint32_t enabledInMovie = 3;
    const Mp4Writer::Box box = out.open("tkhd", 1, enabledInMovie);
    addDates(out, track.created);
    out.add32(track.id);
    out.add32(0);
    out.add64(track.movieLength);
    out.addZeros(12);
    out.add16(isVideo(track.format->codec) ? 0 : 0x100);  // volume
    out.add16(0);
    out.addMatrix();
    out.add32(static_cast<std::uint32_t>(track.format->width) << 16U);
    out.add32(static_cast<std::uint32_t>(track.format->height) << 16U);
    out.close(box);
}

void MovieBoxes::addMediaHead(Mp4Writer& out, const Track& track)
{
    const bool video = isVideo(track.format->codec);
    const Mp4Writer::Box header = out.open("mdhd", 1, 0);
    addDates(out, track.created);
    out.add32(track.timescale);
    out.add64(track.mediaLength);
    out.add16(undetermined);
    out.add16(0);
    out.close(header);
    const Mp4Writer::Box handler = out.open("hdlr", 0, 0);
    out.add32(0);
    out.addText(video ? "vide" : "soun");
    out.addZeros(12);
    out.addText(video ? "Video" : "Audio");
    out.add8(0);
    out.close(handler);
}

void MovieBoxes::addInformationHead(Mp4Writer& out, const Track& track)
{
    const bool video = isVideo(track.format->codec);
    const Mp4Writer::Box kind = video ? out.open("vmhd", 0, 1) : out.open("smhd", 0, 0);
    out.addZeros(video ? 8 : 4);
    out.close(kind);
    const Mp4Writer::Box data = out.open("dinf");
    const Mp4Writer::Box references = out.open("dref", 0, 0);
    out.add32(1);
    out.close(out.open("url ", 0, 1));  // in this file
    out.close(references);
    out.close(data);
}

}  // namespace refhost

#include "refhost/recording/RecordingListing.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>
#include <ostream>

namespace refhost
{
namespace
{

constexpr std::int64_t second = 1000000000;

std::string utc(std::int64_t timeNs)
{
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(static_cast<std::time_t>(timeNs / second)),
                       timeNs % second / 1000000);
}

std::string seconds(std::int64_t timeNs)
{
    return fmt::format("{}.{:03}", timeNs / second, timeNs % second / 1000000);
}

}  // namespace

void RecordingListing::write(const RecordingIndex& index, std::ostream& out) const
{
    const std::vector<RecordedStream> streams = index.streams();
    if (streams.empty())
    {
        out << "nothing is recorded in " << index.directory() << "\n";
    }
    for (const RecordedStream& stream : streams)
    {
        writeStream(index, stream, out);
    }
}

void RecordingListing::writeStream(const RecordingIndex& index, const RecordedStream& stream,
                                   std::ostream& out) const
{
    const std::vector<RecordedInterval> recordings = index.recordings(stream.cameraId, stream.streamId);
    std::int64_t recorded = 0;
    for (const RecordedInterval& interval : recordings)
    {
        recorded += interval.endNs - interval.beginNs;
    }
    std::size_t gaps = 0;
    for (std::size_t i = 1; i < recordings.size(); ++i)
    {
        gaps += recordings[i].beginNs >= recordings[i - 1].endNs ? 1 : 0;
    }
    out << fmt::format("{}: {} seconds, {} gap{}\n", nameOf_(stream.cameraId, stream.streamId),
                       seconds(recorded), gaps, gaps == 1 ? "" : "s");
    const RecordedInterval* before = nullptr;
    for (const RecordedInterval& interval : recordings)
    {
        if (before != nullptr)
        {
            const std::int64_t gapNs = interval.beginNs - before->endNs;
            out << (gapNs >= 0 ? fmt::format("  gap of {} seconds\n", seconds(gapNs))
                               : std::string("  the clock was set back\n"));
        }
        out << fmt::format("  from {} ({}) to {} ({}){}, {} seconds\n      {}\n", utc(interval.beginNs),
                           seconds(interval.beginNs), utc(interval.endNs), seconds(interval.endNs),
                           interval.growing && recording_ ? " and growing" : "",
                           seconds(interval.endNs - interval.beginNs), url(stream.cameraId, interval));
        before = &interval;
    }
}

// Whole seconds inside the interval, so that all that is asked for is there; of a short one those around it.
std::string RecordingListing::url(int cameraId, const RecordedInterval& interval) const
{
    std::int64_t begin = (interval.beginNs + second - 1) / second;
    std::int64_t end = interval.endNs / second;
    if (end <= begin)
    {
        begin = interval.beginNs / second;
        end = (interval.endNs + second - 1) / second;
    }
    return fmt::format("{}{}_{}_{}", base_, cameraId, begin, end);
}

}  // namespace refhost

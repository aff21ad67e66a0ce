#include "refhost/recording/RecordingListing.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>
#include <ostream>

namespace refhost
{
namespace
{

std::string seconds(Duration span)
{
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(span).count();
    return fmt::format("{}.{:03}", ms / 1000, ms % 1000);
}

/// As in a calendar, and in seconds since 1970.
std::string dateOf(WallTime date)
{
    const auto ms =
        std::chrono::floor<std::chrono::milliseconds>(date - std::chrono::floor<std::chrono::seconds>(date));
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z ({})",
                       fmt::gmtime(static_cast<std::time_t>(unixSeconds(date))), ms.count(),
                       seconds(date.time_since_epoch()));
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
    Duration recorded{};
    for (const RecordedInterval& interval : recordings)
    {
        recorded += interval.end - interval.begin;
    }
    std::size_t gaps = 0;
    for (std::size_t i = 1; i < recordings.size(); ++i)
    {
        gaps += recordings[i].begin >= recordings[i - 1].end ? 1 : 0;
    }
    out << fmt::format("{}: {} seconds, {} gap{}\n", nameOf_(stream.cameraId, stream.streamId),
                       seconds(recorded), gaps, gaps == 1 ? "" : "s");
    const RecordedInterval* before = nullptr;
    for (const RecordedInterval& interval : recordings)
    {
        if (before != nullptr)
        {
            const Duration gap = interval.begin - before->end;
            out << (gap >= Duration::zero() ? fmt::format("  gap of {} seconds\n", seconds(gap))
                                            : std::string("  the clock was set back\n"));
        }
        const char* const state = !interval.growing ? "" : recording_ ? " and growing" : ", unfinished";
        out << fmt::format("  from {} to {}{}, {} seconds\n      {}\n", dateOf(interval.begin),
                           dateOf(interval.end), state, seconds(interval.end - interval.begin),
                           url(stream.cameraId, interval));
        before = &interval;
    }
}

// Whole seconds inside the interval, so that all of them are recorded; for a short interval those around it.
std::string RecordingListing::url(int cameraId, const RecordedInterval& interval) const
{
    using std::chrono::seconds;
    auto begin = std::chrono::ceil<seconds>(interval.begin);
    auto end = std::chrono::floor<seconds>(interval.end);
    if (end <= begin)
    {
        begin = std::chrono::floor<seconds>(interval.begin);
        end = std::chrono::ceil<seconds>(interval.end);
    }
    return fmt::format("{}{}_{}_{}", base_, cameraId, unixSeconds(begin), unixSeconds(end));
}

}  // namespace refhost

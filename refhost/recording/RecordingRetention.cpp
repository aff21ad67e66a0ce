#include "refhost/recording/RecordingRetention.h"

#include <filesystem>
#include <optional>
#include <set>
#include <system_error>

namespace refhost
{

RecordingRetention::Outcome RecordingRetention::apply(RecordingIndex& index, std::int64_t nowNs) const
{
    Outcome outcome;
    std::set<std::int64_t> stuck;
    std::int64_t bytes = index.totalBytes();
    while (stuck.size() < mostFailures)
    {
        const std::optional<RecordedSegment> oldest = index.oldestClosed(stuck);
        if (!oldest || !isTooMuch(bytes, *oldest, nowNs))
        {
            break;
        }
        // The file first: it makes room where the disk is full and the index cannot be changed.
        std::error_code problem;
        std::filesystem::remove(oldest->path, problem);
        if (problem)
        {
            outcome.problem = oldest->path + ": " + problem.message();
            stuck.insert(oldest->id);
            continue;
        }
        if (!index.remove(oldest->id))
        {
            outcome.problem = index.lastError();
            break;
        }
        bytes -= oldest->bytes;
        ++outcome.removed;
    }
    return outcome;
}

bool RecordingRetention::isTooMuch(std::int64_t bytes, const RecordedSegment& oldest,
                                   std::int64_t nowNs) const
{
    const bool tooOld = limits_.maxAgeNs > 0 && oldest.beginNs + oldest.durationNs < nowNs - limits_.maxAgeNs;
    return tooOld || (limits_.maxBytes > 0 && bytes > limits_.maxBytes);
}

}  // namespace refhost

#include "refhost/recording/RecordingRetention.h"

#include <filesystem>
#include <optional>
#include <set>
#include <system_error>

#include "refhost/recording/FileUse.h"

namespace refhost
{

RecordingRetention::Outcome RecordingRetention::apply(RecordingIndex& index, std::int64_t nowNs) const
{
    Outcome outcome;
    std::set<std::int64_t> stuck;
    std::set<std::int64_t> passed;  // stuck ones, and those that are in use
    std::int64_t bytes = index.totalBytes();
    bool sparesUsed = true;
    while (stuck.size() < mostFailures)
    {
        const std::optional<RecordedSegment> oldest = index.oldestClosed(passed);
        if (sparesUsed && !oldest && passed.size() > stuck.size())
        {
            // Nothing else is left.
            sparesUsed = false;
            passed = stuck;
            continue;
        }
        if (!oldest || !isTooMuch(bytes, *oldest, nowNs))
        {
            break;
        }
        if (sparesUsed && !isTooOld(*oldest, nowNs) && FileUse::isOpenElsewhere(oldest->path))
        {
            passed.insert(oldest->id);
            continue;
        }
        // The file first: it makes room where the disk is full and the index cannot be changed.
        std::error_code problem;
        std::filesystem::remove(oldest->path, problem);
        if (problem)
        {
            outcome.problem = oldest->path + ": " + problem.message();
            stuck.insert(oldest->id);
            passed.insert(oldest->id);
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
    return isTooOld(oldest, nowNs) || (limits_.maxBytes > 0 && bytes > limits_.maxBytes);
}

bool RecordingRetention::isTooOld(const RecordedSegment& segment, std::int64_t nowNs) const
{
    return limits_.maxAgeNs > 0 && segment.beginNs + segment.durationNs < nowNs - limits_.maxAgeNs;
}

}  // namespace refhost

#include "refhost/recording/RecordingRetention.h"

#include <filesystem>
#include <system_error>

namespace refhost
{

int RecordingRetention::apply(RecordingIndex& index, std::int64_t nowNs) const
{
    int removed = 0;
    std::int64_t bytes = index.totalBytes();
    for (;;)
    {
        const std::optional<RecordedSegment> oldest = index.oldestClosed();
        if (!oldest || !isTooMuch(bytes, *oldest, nowNs))
        {
            return removed;
        }
        // The file first: it makes room where the disk is full and the index cannot be changed.
        std::error_code problem;
        std::filesystem::remove(oldest->path, problem);
        if (problem || !index.remove(oldest->id))
        {
            return removed;
        }
        bytes -= oldest->bytes;
        ++removed;
    }
}

bool RecordingRetention::isTooMuch(std::int64_t bytes, const RecordedSegment& oldest,
                                   std::int64_t nowNs) const
{
    const bool tooOld = limits_.maxAgeNs > 0 && oldest.beginNs + oldest.durationNs < nowNs - limits_.maxAgeNs;
    return tooOld || (limits_.maxBytes > 0 && bytes > limits_.maxBytes);
}

}  // namespace refhost

#include "refhost/recording/RecordingRepair.h"

#include <filesystem>
#include <set>
#include <string>
#include <system_error>

#include "refhost/recording/SegmentMeasure.h"
#include "refhost/recording/SegmentPath.h"

namespace refhost
{
namespace
{

namespace fs = std::filesystem;

struct Run
{
    RecordingIndex& index;
    const SegmentLedger* ledger;
    const std::atomic<bool>* stopping;
    RecordingRepair::Result result;

    bool isStopping() const
    {
        return stopping != nullptr && *stopping;
    }
    /// The ledger enters its own segments: in their order, by which the index notices a clock that was set
    /// back.
    bool isTheLedgers(const std::string& path) const
    {
        return ledger != nullptr && ledger->holds(path);
    }
    SegmentMeasure::Result measure(const std::string& path, SegmentMeasure& measure) const
    {
        return SegmentMeasure::take(path, measure, stopping);
    }
    void count(bool done, int& success)
    {
        ++(done ? success : result.refused);
    }
};

// Renames to a free name beside it.
bool setAside(const std::string& path)
{
    std::string aside = path + ".damaged";
    std::error_code problem;
    for (int number = 2; fs::exists(fs::symlink_status(aside, problem)); ++number)
    {
        aside = path + ".damaged-" + std::to_string(number);
    }
    fs::rename(path, aside, problem);
    return !problem;
}

void closeOrSetAside(Run& run, const RecordedSegment& segment)
{
    SegmentMeasure measure;
    switch (run.measure(segment.path, measure))
    {
        case SegmentMeasure::Result::media:
            run.count(run.index.close(segment.id, measure.duration, measure.bytes), run.result.closed);
            return;
        case SegmentMeasure::Result::nothing:
            if (!setAside(segment.path))
            {
                ++run.result.failed;
                return;
            }
            run.count(run.index.remove(segment.id), run.result.setAside);
            return;
        case SegmentMeasure::Result::unreadable:
            ++run.result.failed;
    }
}

// Whether a finished file was truncated, as by a power failure.
bool isCutOff(const RecordedSegment& segment)
{
    std::error_code problem;
    const auto bytes = static_cast<std::int64_t>(fs::file_size(segment.path, problem));
    return !problem && bytes < segment.bytes;
}

void checkEntry(Run& run, const RecordedSegment& segment)
{
    std::error_code problem;
    if (run.isTheLedgers(segment.path))
    {
        return;
    }
    if (!fs::exists(segment.path, problem) && !problem)
    {
        run.count(run.index.remove(segment.id), run.result.dropped);
    }
    else if (!segment.closed || isCutOff(segment))
    {
        closeOrSetAside(run, segment);
    }
}

void adopt(Run& run, const SegmentPath& place, const std::string& path)
{
    SegmentMeasure measure;
    if (run.isTheLedgers(path) || run.index.has(path) ||
        run.measure(path, measure) != SegmentMeasure::Result::media)
    {
        return;
    }
    RecordedSegment segment;
    segment.cameraId = place.cameraId;
    segment.streamId = place.streamId;
    segment.begin = place.begin;
    segment.duration = measure.duration;
    segment.bytes = measure.bytes;
    segment.path = path;
    segment.closed = true;
    run.count(run.index.add(segment).has_value(), run.result.adopted);
}

}  // namespace

RecordingRepair::Result RecordingRepair::run(RecordingIndex& index, const SegmentLedger* ledger,
                                             const std::atomic<bool>* stopping)
{
    Run run{index, ledger, stopping, {}};
    std::set<std::string> known;
    for (const RecordedSegment& segment : index.all())
    {
        if (run.isStopping())
        {
            return run.result;
        }
        known.insert(segment.path);
        checkEntry(run, segment);
    }
    const std::string& directory = index.directory();
    std::error_code problem;
    fs::recursive_directory_iterator file(directory, fs::directory_options::skip_permission_denied, problem);
    for (; !problem && !run.isStopping() && file != fs::recursive_directory_iterator();
         file.increment(problem))
    {
        const std::string path = file->path().string();
        const auto place = SegmentPath::parse(path.substr(directory.size() + 1));
        std::error_code unreadable;
        if (place && known.count(path) == 0 && file->is_regular_file(unreadable))
        {
            adopt(run, *place, path);
        }
        if (file.depth() >= 2)
        {
            file.disable_recursion_pending();
        }
    }
    return run.result;
}

}  // namespace refhost

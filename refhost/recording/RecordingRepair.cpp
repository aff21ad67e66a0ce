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

void count(bool done, int& success, RecordingRepair::Result& result)
{
    ++(done ? success : result.failed);
}

// To a name beside it that is free.
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

void closeOrSetAside(RecordingIndex& index, const RecordedSegment& segment, RecordingRepair::Result& result)
{
    SegmentMeasure measure;
    switch (SegmentMeasure::take(segment.path, measure))
    {
        case SegmentMeasure::Result::footage:
            count(index.close(segment.id, measure.durationNs, measure.bytes), result.closed, result);
            return;
        case SegmentMeasure::Result::nothing:
            count(setAside(segment.path) && index.remove(segment.id), result.setAside, result);
            return;
        case SegmentMeasure::Result::unreadable:
            ++result.failed;
    }
}

// Whether the system has lost what was written to a finished file, as it may when the power fails.
bool isCutOff(const RecordedSegment& segment)
{
    std::error_code problem;
    const auto bytes = static_cast<std::int64_t>(fs::file_size(segment.path, problem));
    return !problem && bytes < segment.bytes;
}

void adopt(RecordingIndex& index, const SegmentPath& place, const std::string& path,
           RecordingRepair::Result& result)
{
    SegmentMeasure measure;
    if (SegmentMeasure::take(path, measure) != SegmentMeasure::Result::footage)
    {
        return;
    }
    RecordedSegment segment;
    segment.cameraId = place.cameraId;
    segment.streamId = place.streamId;
    segment.beginNs = place.beginNs;
    segment.durationNs = measure.durationNs;
    segment.bytes = measure.bytes;
    segment.path = path;
    segment.closed = true;
    count(index.add(segment).has_value(), result.adopted, result);
}

}  // namespace

RecordingRepair::Result RecordingRepair::run(RecordingIndex& index)
{
    Result result;
    std::set<std::string> known;
    for (const RecordedSegment& segment : index.all())
    {
        std::error_code problem;
        known.insert(segment.path);
        if (!fs::exists(segment.path, problem) && !problem)
        {
            count(index.remove(segment.id), result.dropped, result);
        }
        else if (!segment.closed || isCutOff(segment))
        {
            closeOrSetAside(index, segment, result);
        }
    }
    const std::string& directory = index.directory();
    std::error_code problem;
    fs::recursive_directory_iterator file(directory, fs::directory_options::skip_permission_denied, problem);
    for (; !problem && file != fs::recursive_directory_iterator(); file.increment(problem))
    {
        const std::string path = file->path().string();
        const auto place = SegmentPath::parse(path.substr(directory.size() + 1));
        std::error_code unreadable;
        if (place && known.count(path) == 0 && file->is_regular_file(unreadable))
        {
            adopt(index, *place, path, result);
        }
        if (file.depth() >= 2)
        {
            file.disable_recursion_pending();
        }
    }
    return result;
}

}  // namespace refhost

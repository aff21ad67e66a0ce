// Any bytes as a recorded segment that is exported.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "refhost/base/Descriptor.h"
#include "refhost/export/Mp4Export.h"

namespace
{

using namespace refhost;

/// Two segments of one file, so that they overlap.
class OneFile : public RecordingDirectory
{
public:
    explicit OneFile(std::string path) : path_(std::move(path)) {}

    std::optional<int> streamOf(int, WallTime, WallTime) const override
    {
        return 0;
    }
    std::vector<RecordedSegment> find(int, int, WallTime, WallTime, int,
                                      const SegmentPlace& after) const override
    {
        std::vector<RecordedSegment> found;
        for (const int start : {0, 1})
        {
            RecordedSegment segment;
            segment.begin = wallTimeOfUnix(1'600'000'000 + start);
            segment.duration = std::chrono::seconds(3);
            segment.path = path_;
            segment.closed = start == 0;
            if (std::pair(segment.epoch, segment.begin) > std::pair(after.epoch, after.begin) ||
                after.epoch < 0)
            {
                found.push_back(segment);
            }
        }
        return found;
    }

private:
    const std::string path_;
};

void readAll(Mp4Export& source)
{
    std::array<std::uint8_t, 4096> bytes{};
    std::string error;
    for (std::uint64_t at = 0; at < source.size();)
    {
        const auto got = source.read(at, bytes.data(), bytes.size(), error);
        // All of it lies in the file, which nobody changes.
        if (!got || *got == 0)
        {
            std::abort();
        }
        at += *got;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Descriptor file(::memfd_create("segment", MFD_CLOEXEC));
    if (!file || ::write(file.get(), data, size) != static_cast<ssize_t>(size))
    {
        return 0;
    }
    ExportPlan::Request request;
    request.begin = wallTimeOfUnix(1'600'000'000) + std::chrono::milliseconds(300);
    request.end = wallTimeOfUnix(1'600'000'010);
    ExportPlan::Problem problem{};
    std::string error;
    const OneFile recordings("/proc/self/fd/" + std::to_string(file.get()));
    if (const auto source = Mp4Export::open(recordings, request, problem, error))
    {
        readAll(*source);
    }
    else if (error.empty())
    {
        std::abort();
    }
    return 0;
}

#include "refhost/recording/RecordingRoom.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "refhost/base/DiskSpace.h"
#include "refhost/base/Log.h"
#include "refhost/recording/FileUse.h"
#include "refhost/recording/SegmentPath.h"

namespace refhost
{
namespace
{

namespace fs = std::filesystem;

constexpr std::int64_t mebibyte = 1048576;
constexpr std::int64_t minRoom = mebibyte / 4;
constexpr std::int64_t maxRoom = 256 * mebibyte;
constexpr int maxRemoved = 256;
constexpr int maxRemovedForFiles = 4;
/// Listing many files takes long: this many of the oldest are cached.
constexpr std::size_t maxRemembered = 1024;

}  // namespace

bool RecordingRoom::make(bool again)
{
    const MutexLock guard(mutex_);
    // Another thread or program may have made room since.
    if (!again && hasRoom())
    {
        return true;
    }
    const Need need = this->need();
    int removed = 0;
    for (const bool alsoUsed : {false, true})
    {
        // Cached segments may be gone or in use.
        for (const bool listAgain : {false, true})
        {
            if (removed == 0)
            {
                if (listAgain || oldest_.empty())
                {
                    findOldest();
                }
                removed = removeOldest(need, alsoUsed);
            }
        }
    }
    report(removed);
    return removed > 0;
}

bool RecordingRoom::hasRoom() const
{
    const Need need = this->need();
    return need.freeBytes >= need.bytes && need.freeFiles >= need.files;
}

RecordingRoom::Need RecordingRoom::need() const
{
    const std::optional<DiskSpace> disk = DiskSpace::of(ledger_.directory());
    if (!disk)
    {
        return {};
    }
    Need need;
    need.freeBytes = disk->available;
    need.bytes = std::clamp(disk->capacity / 100, minRoom, maxRoom);
    // Some file systems have no limit of files.
    need.freeFiles = disk->files == 0 ? 4 : disk->availableFiles;
    // The index needs several.
    need.files = 4;
    return need;
}

void RecordingRoom::findOldest()
{
    std::vector<Candidate> found;
    const auto isOlder = [](const Candidate& left, const Candidate& right)
    { return std::tie(left.begin, left.path) < std::tie(right.begin, right.path); };
    const std::string& directory = ledger_.directory();
    std::error_code problem;
    fs::recursive_directory_iterator file(directory, fs::directory_options::skip_permission_denied, problem);
    for (; !problem && file != fs::recursive_directory_iterator(); file.increment(problem))
    {
        std::string path = file->path().string();
        const auto place = SegmentPath::parse(path.substr(directory.size() + 1));
        if (place && !ledger_.isOpen(path))
        {
            found.push_back({place->begin, std::move(path)});
        }
        if (found.size() >= 2 * maxRemembered)
        {
            std::nth_element(found.begin(), found.begin() + maxRemembered, found.end(), isOlder);
            found.resize(maxRemembered);
        }
        if (file.depth() >= 2)
        {
            file.disable_recursion_pending();
        }
    }
    std::sort(found.begin(), found.end(), isOlder);
    oldest_.assign(std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
}

/// \returns how many
int RecordingRoom::removeOldest(const Need& need, bool alsoUsed)
{
    // With bytes left, the disk ran out of files: removing a few suffices.
    const bool outOfFiles = need.freeFiles < need.files && need.freeBytes >= need.bytes;
    const int max = outOfFiles ? maxRemovedForFiles : maxRemoved;
    std::int64_t freed = 0;
    int removed = 0;
    std::deque<Candidate> used;
    while (!oldest_.empty() && freed < need.bytes && removed < max)
    {
        Candidate next = std::move(oldest_.front());
        oldest_.pop_front();
        if (ledger_.isOpen(next.path))
        {
            continue;
        }
        if (!alsoUsed && FileUse::isOpenElsewhere(next.path))
        {
            used.push_back(std::move(next));
            continue;
        }
        if (const auto bytes = remove(next.path))
        {
            freed += *bytes;
            ++removed;
        }
    }
    oldest_.insert(oldest_.begin(), std::make_move_iterator(used.begin()),
                   std::make_move_iterator(used.end()));
    return removed;
}

/// \returns its size on the disk; nothing where there is no such file, or it cannot be removed
std::optional<std::int64_t> RecordingRoom::remove(const std::string& path)
{
    struct stat status
    {
    };
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
    {
        return std::nullopt;
    }
    if (::unlink(path.c_str()) != 0)
    {
        Log::debug("{} cannot be removed: {}", path, std::generic_category().message(errno));
        return std::nullopt;
    }
    ledger_.remove(path);
    constexpr std::int64_t blockSize = 512;
    return static_cast<std::int64_t>(status.st_blocks) * blockSize;
}

void RecordingRoom::report(int removed)
{
    unreported_ += removed;
    if (unreported_ == 0 || !reportPause_.isOver())
    {
        return;
    }
    Log::warning("the disk of {} is full: {} of the oldest recordings made room", ledger_.directory(),
                 std::exchange(unreported_, 0));
}

}  // namespace refhost

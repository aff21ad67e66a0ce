#include "refhost/doctor/DiskCheck.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>

#include "refhost/base/Descriptor.h"
#include "refhost/base/DiskSpace.h"
#include "refhost/base/Log.h"
#include "refhost/base/Quantity.h"
#include "refhost/doctor/Recordings.h"

namespace refhost
{
namespace
{

constexpr std::size_t blockBytes = 1 << 20;
constexpr std::int64_t maxBlocks = 16;

/// \returns bytes a second, down to the disk; nothing with errno set
std::optional<double> writeSpeed(const std::string& folder, std::int64_t room)
{
    const auto blocks =
        std::clamp<std::int64_t>(room / 2 / static_cast<std::int64_t>(blockBytes), 1, maxBlocks);
    const Descriptor file(::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    if (!file)
    {
        return std::nullopt;
    }
    const std::string block(blockBytes, 'x');
    const auto start = std::chrono::steady_clock::now();
    for (std::int64_t i = 0; i < blocks; ++i)
    {
        const ssize_t written = ::write(file.get(), block.data(), block.size());
        if (written != static_cast<ssize_t>(block.size()))
        {
            errno = written < 0 ? errno : ENOSPC;
            return std::nullopt;
        }
    }
    if (::fdatasync(file.get()) != 0)
    {
        return std::nullopt;
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    return static_cast<double>(blockBytes) * static_cast<double>(blocks) / std::max(taken.count(), 1e-6);
}

Finding judgedRoom(const DiskSpace& space, const std::string& displayed, const RecordingConfig& recording)
{
    const auto free = FreeSpace::parse(recording.minFree);
    const std::int64_t floor = free ? free->bytesOf(space.capacity) : 0;
    const std::string room = fmt::format("{} of {} are free at {}", roundedSizeText(space.available),
                                         roundedSizeText(space.capacity), displayed);
    if (space.available < floor || (space.files > 0 && space.availableFiles < 100))
    {
        return Finding::failure(
            fmt::format("{}, less than min-free = {} leaves", room, roundedSizeText(floor)),
            "Make room: whatever else is on this disk, the server only removes its own recordings");
    }
    if (recording.maxSize > space.capacity)
    {
        return Finding::warning(
            fmt::format("{}, and [recording] max-size is {}", room, roundedSizeText(recording.maxSize)),
            "Lower max-size, or take a larger disk; min-free removes the oldest recordings before");
    }
    return Finding::good(room);
}

}  // namespace

DiskCheck::DiskCheck(const ServerConfig& config) : config_(config) {}

std::string DiskCheck::subject() const
{
    return "disk";
}

std::vector<Finding> DiskCheck::run()
{
    if (!recordsAnything(config_))
    {
        return {Finding::good("nothing is recorded")};
    }
    const std::string folder = existingParent(config_.recording.directory).string();
    const std::string displayed = Log::safe(folder);
    const auto space = DiskSpace::of(folder);
    if (!space)
    {
        return {Finding::failure(
            fmt::format("the disk of {} does not answer: {}", displayed, std::strerror(errno)),
            "Mount it, and see what the kernel says: journalctl -k")};
    }
    std::vector<Finding> found{judgedRoom(*space, displayed, config_.recording)};
    const auto speed = writeSpeed(folder, space->available);
    const double needed = recordedBitRate(config_) * 1000.0 / 8 * 2;
    if (!speed)
    {
        found.push_back(Finding::warning(
            fmt::format("the speed of {} cannot be measured: {}", displayed, std::strerror(errno)),
            "See that there is room, and that the service's user can write there"));
    }
    else if (*speed < needed)
    {
        found.push_back(
            Finding::failure(fmt::format("{} takes {}/s, and recording needs {}/s with room for bursts",
                                         displayed, roundedSizeText(static_cast<std::int64_t>(*speed)),
                                         roundedSizeText(static_cast<std::int64_t>(needed))),
                             "Record fewer streams or lower bit rates, or take a faster disk"));
    }
    else
    {
        found.push_back(Finding::good(
            fmt::format("{} takes {}/s", displayed, roundedSizeText(static_cast<std::int64_t>(*speed)))));
    }
    return found;
}

}  // namespace refhost

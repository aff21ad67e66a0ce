#include "tests/refhost/recording/DiskCalls.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <system_error>

#include "refhost/recording/SegmentMeasure.h"

namespace refhost
{
namespace
{

constexpr std::chrono::seconds patience(20);

std::string pathOf(int file)
{
    std::error_code unknown;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file), unknown).string();
}

bool isRecorded(const std::string& path)
{
    return std::filesystem::path(path).extension() == ".mkv";
}

}  // namespace

DiskCalls& DiskCalls::instance()
{
    static DiskCalls calls;
    return calls;
}

void DiskCalls::reset()
{
    release();
    const std::lock_guard<std::mutex> guard(mutex_);
    calls_.clear();
    fails_ = false;
}

std::vector<DiskCalls::Call> DiskCalls::calls() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return calls_;
}

bool DiskCalls::waitForSync(const std::string& path, double seconds) const
{
    std::unique_lock<std::mutex> guard(mutex_);
    return changed_.wait_for(guard, patience,
                             [&]
                             {
                                 return std::any_of(calls_.begin(), calls_.end(),
                                                    [&](const Call& call) {
                                                        return call.name == "sync" && call.path == path &&
                                                               call.seconds >= seconds;
                                                    });
                             });
}

void DiskCalls::failSyncs(bool fail)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    fails_ = fail;
}

void DiskCalls::hang(const std::string& call, const std::string& part)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    hangingCall_ = call;
    hangingPart_ = part;
}

bool DiskCalls::waitForHanging(int count) const
{
    std::unique_lock<std::mutex> guard(mutex_);
    return changed_.wait_for(guard, patience, [&] { return hanging_ >= count; });
}

void DiskCalls::release()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    hangingCall_.clear();
    changed_.notify_all();
}

int DiskCalls::note(const std::string& name, int file)
{
    const std::string path = pathOf(file);
    if (!isRecorded(path))
    {
        return 0;
    }
    SegmentMeasure measure;
    std::error_code unknown;
    if (std::filesystem::file_size(path, unknown) > 0 && !unknown)
    {
        SegmentMeasure::take(path, measure);
    }
    const std::lock_guard<std::mutex> guard(mutex_);
    calls_.push_back({name, path, secondsOf(measure.duration)});
    changed_.notify_all();
    return fails_ ? EIO : 0;
}

void DiskCalls::stall(const std::string& call, int file)
{
    std::unique_lock<std::mutex> guard(mutex_);
    if (hangingCall_ != call)
    {
        return;
    }
    const std::string path = pathOf(file);
    if (!isRecorded(path) || path.find(hangingPart_) == std::string::npos)
    {
        return;
    }
    ++hanging_;
    changed_.notify_all();
    changed_.wait(guard, [&] { return hangingCall_.empty(); });
    --hanging_;
}

}  // namespace refhost

// In the place of the C library's.
extern "C" int sync_file_range(int file, __off64_t, __off64_t, unsigned)
{
    errno = refhost::DiskCalls::instance().note("start", file);
    return errno == 0 ? 0 : -1;
}

extern "C" int fdatasync(int file)
{
    refhost::DiskCalls::instance().stall("sync", file);
    errno = refhost::DiskCalls::instance().note("sync", file);
    return errno == 0 ? 0 : -1;
}

extern "C" ssize_t pwrite(int file, const void* bytes, std::size_t size, off_t offset)
{
    refhost::DiskCalls::instance().stall("write", file);
    return syscall(SYS_pwrite64, file, bytes, size, offset);
}

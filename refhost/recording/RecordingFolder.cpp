#include "refhost/recording/RecordingFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "refhost/base/MountPoint.h"

namespace refhost
{
namespace
{

namespace fs = std::filesystem;

constexpr mode_t folderMode = 0750;
constexpr mode_t fileMode = 0640;

std::string lockOf(const std::string& folder)
{
    return folder + "/server.lock";
}

struct flock wholeFile(short type)
{
    struct flock request
    {
    };
    request.l_type = type;
    request.l_whence = SEEK_SET;
    return request;
}

std::string because(const std::string& path)
{
    const int reason = errno;
    const char* const mend =
        reason == EROFS
            ? "; mount it writable, and under systemd permit it by ReadWritePaths= (systemctl edit)"
        : reason == EACCES || reason == EPERM ? "; the server's user must own it, and the sandbox permit it"
                                              : "";
    std::string text = path + ": " + std::strerror(reason) + mend;
    errno = reason;
    return text;
}

// A server writes its process id into the file that it locks.
std::string holderOf(int file)
{
    std::array<char, 16> text{};
    const ssize_t size = ::pread(file, text.data(), text.size() - 1, 0);
    const std::string number(text.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    const std::size_t digits = number.find_first_not_of("0123456789");
    return digits == 0 || number.empty() ? "" : " (process " + number.substr(0, digits) + ")";
}

}  // namespace

std::unique_ptr<RecordingFolder> RecordingFolder::open(const std::string& path, std::string& error)
{
    std::unique_ptr<RecordingFolder> folder(new RecordingFolder(path));
    const bool good = make(path, error) && folder->lock(error) && folder->identify(error);
    return good ? std::move(folder) : nullptr;
}

RecordingFolder::~RecordingFolder() = default;

std::string RecordingFolder::withoutSlash(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
    {
        path.pop_back();
    }
    return path;
}

bool RecordingFolder::make(const std::string& path, std::string& error)
{
    std::error_code problem;
    if (fs::is_directory(path, problem))
    {
        return true;
    }
    const std::string above = fs::path(path).parent_path().string();
    if (!above.empty() && above != path && !make(above, error))
    {
        return false;
    }
    if (::mkdir(path.c_str(), folderMode) == 0 || (errno == EEXIST && fs::is_directory(path, problem)))
    {
        return true;
    }
    const int reason = errno == EEXIST ? ENOTDIR : errno;
    error = path + ": " + std::strerror(reason);
    errno = reason;
    return false;
}

bool RecordingFolder::lock(std::string& error)
{
    const std::string path = lockOf(path_);
    lock_ = Descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, fileMode));
    if (!lock_)
    {
        const int reason = errno;
        error = because(path);
        errno = reason;
        return false;
    }
    // A lock of the open file, not of the process: it excludes a second server in the same process, too.
    struct flock request = wholeFile(F_WRLCK);
    if (::fcntl(lock_.get(), F_OFD_SETLK, &request) != 0)
    {
        const bool taken = errno == EAGAIN || errno == EACCES;
        error = taken ? path_ + ": another server" + holderOf(lock_.get()) +
                            " uses this folder; each server needs a folder of its own"
                      : because(path);
        return false;
    }
    const std::string number = std::to_string(::getpid()) + "\n";
    // For the message only: the lock holds also on a full disk.
    if (::ftruncate(lock_.get(), 0) != 0 ||
        ::pwrite(lock_.get(), number.data(), number.size(), 0) != static_cast<ssize_t>(number.size()))
    {
        errno = 0;
    }
    return true;
}

bool RecordingFolder::isInUse(const std::string& path)
{
    const Descriptor file(::open(lockOf(path).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!file)
    {
        return false;
    }
    struct flock request = wholeFile(F_RDLCK);
    return ::fcntl(file.get(), F_OFD_GETLK, &request) == 0 && request.l_type != F_UNLCK;
}

bool RecordingFolder::identify(std::string& error)
{
    struct stat status
    {
    };
    if (::stat(path_.c_str(), &status) != 0)
    {
        error = because(path_);
        return false;
    }
    device_ = status.st_dev;
    inode_ = status.st_ino;
    mountPoint_ = MountPoint::of(path_);
    return true;
}

bool RecordingFolder::isInPlace() const
{
    struct stat status
    {
    };
    return ::stat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

bool RecordingFolder::isUnmounted() const
{
    if (mountPoint_.empty() || isInPlace())
    {
        return false;
    }
    const std::optional<dev_t> here = MountPoint::deviceOf(mountPoint_);
    return !here || here == MountPoint::deviceOf(fs::path(mountPoint_).parent_path().string());
}

}  // namespace refhost

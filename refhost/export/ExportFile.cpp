#include "refhost/export/ExportFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "refhost/base/Descriptor.h"

namespace refhost
{
namespace
{

constexpr std::size_t blockSize = std::size_t{1} << 20U;

bool writeAll(int file, const std::uint8_t* bytes, std::size_t count)
{
    while (count > 0)
    {
        const ssize_t written = ::write(file, bytes, count);
        if (written < 0 && errno == EINTR)
        {
            continue;
        }
        if (written <= 0)
        {
            return false;
        }
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
    return true;
}

/// \returns false with `error` set; empty where `errno` says why
bool copy(Mp4Export& source, int file, const ExportFile::Progress& progress,
          const std::atomic<bool>* stopping, std::string& error)
{
    std::vector<std::uint8_t> block(blockSize);
    for (std::uint64_t done = 0; done < source.size();)
    {
        if (stopping != nullptr && *stopping)
        {
            error = "interrupted";
            return false;
        }
        const auto got = source.read(done, block.data(), block.size(), error);
        if (!got || !writeAll(file, block.data(), *got))
        {
            return false;
        }
        done += *got;
        progress(done, source.size());
    }
    return ::fsync(file) == 0 || errno == EINVAL || errno == EROFS;
}

}  // namespace

bool ExportFile::write(Mp4Export& source, const std::string& path, const Progress& progress,
                       const std::atomic<bool>* stopping, std::string& error)
{
    std::string partial = path + ".part-XXXXXX";
    const auto failed = [&](const std::string& name)
    {
        error = error.empty() ? name + ": " + std::strerror(errno) : error;
        return false;
    };
    error.clear();
    struct stat status
    {
    };
    if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
    {
        error = path + ": is not a regular file";
        return false;
    }
    const Descriptor file(::mkostemp(partial.data(), O_CLOEXEC));
    if (!file)
    {
        return failed(path);
    }
    ::fchmod(file.get(), 0640);
    // Room is reserved, so that a disk that is too small says so at once. Not every file system can.
    const bool hasRoom = ::fallocate(file.get(), 0, 0, static_cast<off_t>(source.size())) == 0 ||
                         (errno != ENOSPC && errno != EFBIG && errno != EDQUOT);
    const bool written = hasRoom && copy(source, file.get(), progress, stopping, error) &&
                         ::rename(partial.c_str(), path.c_str()) == 0;
    if (!written)
    {
        failed(path);
        ::unlink(partial.c_str());
    }
    return written;
}

}  // namespace refhost

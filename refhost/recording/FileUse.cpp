#include "refhost/recording/FileUse.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "refhost/base/Descriptor.h"

namespace refhost
{

bool FileUse::isOpenElsewhere(const std::string& path)
{
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file)
    {
        return false;
    }
    // A write lease is granted only while nobody else has the file open. Opening it breaks the lease with a
    // signal: SIGURG, because the default SIGIO would end the program.
    const bool leased =
        ::fcntl(file.get(), F_SETSIG, SIGURG) == 0 && ::fcntl(file.get(), F_SETLEASE, F_WRLCK) == 0;
    const bool used = !leased && errno == EAGAIN;
    if (leased)
    {
        ::fcntl(file.get(), F_SETLEASE, F_UNLCK);
    }
    return used;
}

}  // namespace refhost

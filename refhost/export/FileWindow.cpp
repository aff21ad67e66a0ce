#include "refhost/export/FileWindow.h"

#include <unistd.h>

#include <cerrno>

namespace refhost
{

const std::uint8_t* FileWindow::look(std::uint64_t at, std::size_t count)
{
    if (held(at) < count)
    {
        ssize_t got = 0;
        do
        {
            got = ::pread(descriptor_, bytes_.data(), bytes_.size(), static_cast<off_t>(at));
        } while (got < 0 && errno == EINTR);
        start_ = at;
        size_ = got > 0 ? static_cast<std::size_t>(got) : 0;
        if (size_ < count)
        {
            return nullptr;
        }
    }
    return bytes_.data() + (at - start_);
}

std::size_t FileWindow::held(std::uint64_t at) const
{
    return at >= start_ && at < start_ + size_ ? static_cast<std::size_t>(start_ + size_ - at) : 0;
}

}  // namespace refhost

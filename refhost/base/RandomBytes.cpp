#include "refhost/base/RandomBytes.h"

#include <sys/random.h>

#include <cerrno>
#include <cstdint>
#include <stdexcept>

namespace refhost
{

void fillRandom(void* out, std::size_t size)
{
    auto* at = static_cast<std::uint8_t*>(out);
    while (size > 0)
    {
        const ssize_t got = ::getrandom(at, size, 0);
        if (got < 0)
        {
            if (errno == EINTR)
            {
                continue;
            }
            throw std::runtime_error("the system has no random numbers");
        }
        at += got;
        size -= static_cast<std::size_t>(got);
    }
}

}  // namespace refhost

#include "refhost/base/RandomBytes.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace refhost
{
namespace
{

void readSystem(std::uint8_t* at, std::size_t size)
{
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

/// Random bytes that this thread has read from the system in advance; each is given out once and forgotten.
struct Reserve
{
    std::array<std::uint8_t, 512> bytes;
    std::size_t left = 0;
};

}  // namespace

void fillRandom(void* out, std::size_t size)
{
    thread_local Reserve reserve;
    if (size > reserve.bytes.size() / 4)
    {
        readSystem(static_cast<std::uint8_t*>(out), size);
        return;
    }
    if (size > reserve.left)
    {
        readSystem(reserve.bytes.data(), reserve.bytes.size());
        reserve.left = reserve.bytes.size();
    }
    reserve.left -= size;
    std::memcpy(out, reserve.bytes.data() + reserve.left, size);
    std::memset(reserve.bytes.data() + reserve.left, 0, size);
}

}  // namespace refhost

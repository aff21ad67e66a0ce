#include "refhost/media/AvSeek.h"

extern "C"
{
#include <libavformat/avio.h>
#include <libavutil/error.h>
}

#include <cerrno>
#include <cstdio>

namespace refhost
{

std::int64_t avSeek(std::int64_t& position, std::int64_t size, std::int64_t offset, int whence)
{
    switch (whence & ~AVSEEK_FORCE)
    {
        case AVSEEK_SIZE:
            return size;
        case SEEK_SET:
            break;
        case SEEK_CUR:
            offset += position;
            break;
        case SEEK_END:
            offset += size;
            break;
        default:
            return AVERROR(EINVAL);
    }
    if (offset < 0)
    {
        return AVERROR(EINVAL);
    }
    position = offset;
    return offset;
}

}  // namespace refhost

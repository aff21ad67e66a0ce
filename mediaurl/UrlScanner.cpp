#include "mediaurl/UrlScanner.h"

#include <cstring>

bool UrlScanner::skipTo(const char* key, std::size_t length)
{
    // std::string::find() makes one more call per candidate.
    const char* at = next_;
    while (static_cast<std::size_t>(end_ - at) > length)
    {
        at = static_cast<const char*>(std::memchr(at, key[0], static_cast<std::size_t>(end_ - at) - length));
        if (at == nullptr)
        {
            return false;
        }
        if (std::memcmp(at, key, length) == 0)
        {
            next_ = at + length;
            return true;
        }
        ++at;
    }
    return false;
}

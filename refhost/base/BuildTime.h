#pragma once

#include <cstdint>

namespace refhost
{

/// When this program was built: no clock that is right shows an earlier time.
class BuildTime
{
public:
    /// Nanoseconds since 1970, by SOURCE_DATE_EPOCH where the build has it.
    static std::int64_t ns();
};

}  // namespace refhost

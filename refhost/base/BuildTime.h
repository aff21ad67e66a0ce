#pragma once

#include "refhost/base/Times.h"

namespace refhost
{

/// When this program was built. A wall clock that shows an earlier time is wrong.
class BuildTime
{
public:
    /// The build's date; SOURCE_DATE_EPOCH where the build environment sets it.
    static WallTime date();
};

}  // namespace refhost

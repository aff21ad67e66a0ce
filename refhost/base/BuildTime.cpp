#include "refhost/base/BuildTime.h"

namespace refhost
{

WallTime BuildTime::date()
{
    return wallTimeOfUnix(OV_BUILD_SECONDS);
}

}  // namespace refhost

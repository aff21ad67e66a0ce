#include "refhost/base/BuildTime.h"

namespace refhost
{

std::int64_t BuildTime::ns()
{
    return std::int64_t{OV_BUILD_SECONDS} * 1'000'000'000;
}

}  // namespace refhost

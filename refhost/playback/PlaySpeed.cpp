#include "refhost/playback/PlaySpeed.h"

#include <algorithm>

namespace refhost
{
namespace
{

double bounded(double wanted)
{
    // Not-a-number compares false too.
    return wanted > 0 ? std::clamp(wanted, PlaySpeed::slowest, PlaySpeed::fastest) : 1.0;
}

}  // namespace

PlaySpeed PlaySpeed::used(double scale, double speed)
{
    PlaySpeed result;
    result.scale = scale < 0 ? -bounded(-scale) : bounded(scale);
    result.speed = std::min(bounded(speed), fastest / result.rate());
    return result;
}

}  // namespace refhost

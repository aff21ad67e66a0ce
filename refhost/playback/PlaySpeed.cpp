#include "refhost/playback/PlaySpeed.h"

#include <algorithm>

namespace refhost
{
namespace
{

double bounded(double requested)
{
    // False for not-a-number as well.
    return requested > 0 ? std::clamp(requested, PlaySpeed::min, PlaySpeed::max) : 1.0;
}

}  // namespace

PlaySpeed PlaySpeed::used(double scale, double speed)
{
    PlaySpeed result;
    result.scale = scale < 0 ? -bounded(-scale) : bounded(scale);
    result.speed = std::min(bounded(speed), max / result.rate());
    return result;
}

}  // namespace refhost

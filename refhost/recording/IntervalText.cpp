#include "refhost/recording/IntervalText.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>

namespace refhost
{
namespace
{

std::string textOf(WallTime time)
{
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(static_cast<std::time_t>(unixSeconds(time))));
}

}  // namespace

std::string IntervalText::of(WallTime first, WallTime last)
{
    const std::string begin = textOf(first);
    const std::string end = textOf(last);
    return begin == end ? begin : begin + " to " + end;
}

}  // namespace refhost

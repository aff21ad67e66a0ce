#include "refhost/rtp/LiveStart.h"

namespace refhost
{

std::optional<LiveStart::Mode> LiveStart::named(std::string_view name)
{
    if (name == "burst")
    {
        return Mode::burst;
    }
    if (name == "paced")
    {
        return Mode::paced;
    }
    return name == "key-frame" ? std::optional<Mode>(Mode::keyFrame) : std::nullopt;
}

}  // namespace refhost

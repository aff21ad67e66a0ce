#include "refhost/talkback/outputs/ClockedOutput.h"

#include <algorithm>

namespace refhost
{

ClockedOutput::ClockedOutput(const HostClock& clock) : clock_(clock) {}

std::string ClockedOutput::name() const
{
    return "null output";
}

bool ClockedOutput::open(const PcmFormat& format, std::string&)
{
    format_ = format;
    opened_ = clock_.now();
    written_ = 0;
    return true;
}

std::uint64_t ClockedOutput::passed() const
{
    return static_cast<std::uint64_t>(format_.clock().ticks(clock_.now() - opened_));
}

std::uint64_t ClockedOutput::place(std::size_t frames)
{
    const std::uint64_t at = std::max(written_, passed());
    written_ = at + frames;
    return at;
}

std::optional<std::size_t> ClockedOutput::queued()
{
    const std::uint64_t now = passed();
    return static_cast<std::size_t>(std::max(written_, now) - now);
}

bool ClockedOutput::write(const std::int16_t*, std::size_t frames)
{
    place(frames);
    return true;
}

void ClockedOutput::close() {}

}  // namespace refhost

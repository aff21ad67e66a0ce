#include "refhost/rtp/ReorderWindow.h"

#include <utility>

namespace refhost
{

ReorderWindow::ReorderWindow(Duration maxWait, std::size_t maxHeld) : maxWait_(maxWait), maxHeld_(maxHeld) {}

void ReorderWindow::reset()
{
    started_ = false;
    held_.clear();
}

ReorderWindow::Added ReorderWindow::add(Packet&& packet)
{
    if (!started_)
    {
        started_ = true;
        expected_ = packet.sequence;
    }
    if (static_cast<std::int32_t>(packet.sequence - expected_) < 0)
    {
        return Added::late;
    }
    return held_.try_emplace(packet.sequence, std::move(packet)).second ? Added::taken : Added::duplicate;
}

bool ReorderWindow::passes(std::uint32_t sequence)
{
    if (started_ && (!held_.empty() || sequence != expected_))
    {
        return false;
    }
    started_ = true;
    expected_ = sequence + 1;
    return true;
}

ReorderWindow::Next ReorderWindow::take(MonotonicTime now, Packet& out, std::uint32_t& lost)
{
    if (held_.empty())
    {
        return Next::none;
    }
    const auto first = held_.begin();
    lost = first->first - expected_;
    if (lost != 0 && held_.size() < maxHeld_ && now - first->second.arrival < maxWait_)
    {
        return Next::waiting;
    }
    out = std::move(first->second);
    expected_ = out.sequence + 1;
    held_.erase(first);
    return Next::packet;
}

MonotonicTime ReorderWindow::waitsUntil() const
{
    return held_.empty() ? MonotonicTime::max() : held_.begin()->second.arrival + maxWait_;
}

}  // namespace refhost

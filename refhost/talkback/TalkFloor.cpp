#include "refhost/talkback/TalkFloor.h"

namespace refhost
{

TalkFloor::TalkFloor(TalkPolicy policy, std::int64_t silenceNs) : policy_(policy), silenceNs_(silenceNs) {}

bool TalkFloor::admit(TalkSender sender)
{
    if (policy_ != TalkPolicy::refuse)
    {
        return true;
    }
    if (guest_ != nullptr && guest_ != sender)
    {
        return false;
    }
    guest_ = sender;
    return true;
}

void TalkFloor::pause(TalkSender sender)
{
    lastActivityNs_.erase(sender);
    if (owner_ == sender)
    {
        owner_ = nullptr;
    }
}

void TalkFloor::leave(TalkSender sender)
{
    pause(sender);
    if (guest_ == sender)
    {
        guest_ = nullptr;
    }
}

bool TalkFloor::claim(TalkSender sender, std::int64_t nowNs)
{
    const bool begins = isSilent(sender, nowNs);
    lastActivityNs_[sender] = nowNs;
    if (policy_ == TalkPolicy::mix)
    {
        return true;
    }
    const bool wins = begins && policy_ == TalkPolicy::newest;
    if (owner_ == nullptr || wins || isSilent(owner_, nowNs))
    {
        owner_ = sender;
    }
    return owner_ == sender;
}

bool TalkFloor::isSilent(TalkSender sender, std::int64_t nowNs) const
{
    const auto found = lastActivityNs_.find(sender);
    return found == lastActivityNs_.end() || nowNs - found->second >= silenceNs_;
}

}  // namespace refhost

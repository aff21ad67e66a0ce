#include "refhost/talkback/TalkFloor.h"

namespace refhost
{

TalkFloor::TalkFloor(TalkPolicy policy, Duration silence) : policy_(policy), silence_(silence) {}

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
    lastActivity_.erase(sender);
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

bool TalkFloor::claim(TalkSender sender, MonotonicTime now)
{
    const bool startsTalking = isSilent(sender, now);
    lastActivity_[sender] = now;
    if (policy_ == TalkPolicy::mix)
    {
        return true;
    }
    const bool wins = startsTalking && policy_ == TalkPolicy::newest;
    if (owner_ == nullptr || wins || isSilent(owner_, now))
    {
        owner_ = sender;
    }
    return owner_ == sender;
}

bool TalkFloor::isSilent(TalkSender sender, MonotonicTime now) const
{
    const auto found = lastActivity_.find(sender);
    return found == lastActivity_.end() || now - found->second >= silence_;
}

}  // namespace refhost

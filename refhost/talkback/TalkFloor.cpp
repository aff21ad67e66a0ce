#include "refhost/talkback/TalkFloor.h"

namespace refhost
{

TalkFloor::TalkFloor(TalkPolicy policy, std::int64_t silenceNs) : policy_(policy), silenceNs_(silenceNs) {}

bool TalkFloor::admit(Talker talker)
{
    if (policy_ != TalkPolicy::refuse)
    {
        return true;
    }
    if (guest_ != nullptr && guest_ != talker)
    {
        return false;
    }
    guest_ = talker;
    return true;
}

void TalkFloor::pause(Talker talker)
{
    lastHeardNs_.erase(talker);
    if (owner_ == talker)
    {
        owner_ = nullptr;
    }
}

void TalkFloor::leave(Talker talker)
{
    pause(talker);
    if (guest_ == talker)
    {
        guest_ = nullptr;
    }
}

bool TalkFloor::claim(Talker talker, std::int64_t nowNs)
{
    const bool begins = isSilent(talker, nowNs);
    lastHeardNs_[talker] = nowNs;
    if (policy_ == TalkPolicy::mix)
    {
        return true;
    }
    const bool wins = begins && policy_ == TalkPolicy::newest;
    if (owner_ == nullptr || wins || isSilent(owner_, nowNs))
    {
        owner_ = talker;
    }
    return owner_ == talker;
}

bool TalkFloor::isSilent(Talker talker, std::int64_t nowNs) const
{
    const auto found = lastHeardNs_.find(talker);
    return found == lastHeardNs_.end() || nowNs - found->second >= silenceNs_;
}

}  // namespace refhost

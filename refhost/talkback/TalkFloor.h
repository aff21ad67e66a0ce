#pragma once

#include <map>

#include "refhost/base/Times.h"
#include "refhost/talkback/TalkSettings.h"

namespace refhost
{

/// Decides who is audible when several clients talk at once.
///
/// Threads: one at a time.
class TalkFloor
{
public:
    /// Identifies one talk-back session.
    using TalkSender = const void*;

    TalkFloor(TalkPolicy policy, Duration silence);

    /// A session is set up.
    /// \returns false when it is refused because another one exists: no further calls then
    bool admit(TalkSender sender);
    /// A session pauses: it has stopped talking.
    void pause(TalkSender sender);
    /// A session ends.
    void leave(TalkSender sender);

    /// Audio of a sender arrived.
    /// \returns true when the sender is audible
    bool claim(TalkSender sender, MonotonicTime now);

    /// The output's owner; null for nobody, and always where everybody is audible.
    TalkSender owner() const
    {
        return owner_;
    }

private:
    bool isSilent(TalkSender sender, MonotonicTime now) const;

    const TalkPolicy policy_;
    const Duration silence_;
    TalkSender owner_ = nullptr;
    TalkSender guest_ = nullptr;                        // admitted under `refuse`
    std::map<TalkSender, MonotonicTime> lastActivity_;  // of senders that have not paused since
};

}  // namespace refhost

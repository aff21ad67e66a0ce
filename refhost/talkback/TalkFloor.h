#pragma once

#include <map>

#include "refhost/base/Times.h"
#include "refhost/talkback/TalkSettings.h"

namespace refhost
{

/// Decides who is heard when several clients talk at once.
///
/// Threads: one at a time.
class TalkFloor
{
public:
    /// Stands for one talk-back session.
    using TalkSender = const void*;

    TalkFloor(TalkPolicy policy, Duration silence);

    /// A session is set up.
    /// \returns false when it is refused because another one exists; it must not come again then
    bool admit(TalkSender sender);
    /// A session pauses: it has stopped talking.
    void pause(TalkSender sender);
    /// A session ends.
    void leave(TalkSender sender);

    /// Audio of a sender came.
    /// \returns true when it is to be heard
    bool claim(TalkSender sender, MonotonicTime now);

    /// Who owns the output; null for nobody, always so where everybody is heard.
    TalkSender owner() const
    {
        return owner_;
    }

private:
    bool isSilent(TalkSender sender, MonotonicTime now) const;

    const TalkPolicy policy_;
    const Duration silence_;
    TalkSender owner_ = nullptr;
    TalkSender guest_ = nullptr;                        // whom `refuse` has let in
    std::map<TalkSender, MonotonicTime> lastActivity_;  // of those who talked and did not pause since
};

}  // namespace refhost

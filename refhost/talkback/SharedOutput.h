#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "hostapi/audio/IMediaPlayer.h"
#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"
#include "refhost/talkback/TalkFloor.h"
#include "refhost/talkback/TalkMixer.h"
#include "refhost/talkback/TalkSettings.h"

namespace refhost
{

/// What all talk-back sessions of the device share: settings, floor and output. Threads: any; one lock of its
/// own, under which the player is called.
class SharedOutput
{
public:
    using TalkSender = TalkFloor::TalkSender;

    /// The process's; made at the first call, never destroyed.
    static SharedOutput& instance();

    explicit SharedOutput(const TalkSettings& settings);
    ~SharedOutput();
    SharedOutput(const SharedOutput&) = delete;
    SharedOutput& operator=(const SharedOutput&) = delete;

    /// Sets the settings. Requires: no session.
    void configure(const TalkSettings& settings);
    TalkSettings settings() const;

    /// A session is set up.
    /// \returns false when the policy refuses it, or the settings' number of sessions is reached
    bool admit(TalkSender sender);
    /// A session pauses: others may take the floor.
    void pause(TalkSender sender);
    /// A session ends.
    void leave(TalkSender sender);

    /// Audio of a session arrived. A change of the output's owner is logged.
    /// \param name  the sender's name in the log
    /// \param user  whom it belongs to; empty: nobody who is known
    /// \returns true when the sender is audible: decode and call play()
    bool claim(TalkSender sender, const std::string& name, MonotonicTime now, std::string_view user = {});

    /// Who is audible.
    struct Floor
    {
        bool shared = false;  ///< everybody: the rest is empty
        std::string holder;   ///< the sender's name as of claim(); empty: nobody
        std::string user;
    };
    Floor floor(MonotonicTime now) const;

    /// Plays decoded audio of an audible sender.
    /// \returns 0, or the player's code
    int play(TalkSender sender, const std::vector<std::int16_t>& samples, IMediaPlayer& player);

    /// Plays the mixed audio due by the clock; call it every few milliseconds.
    /// \returns 0, or the player's code
    int pump(IMediaPlayer& player, MonotonicTime now);

private:
    static int give(IMediaPlayer& player, const std::vector<std::int16_t>& samples);

    mutable Mutex mutex_;
    TalkSettings settings_ OV_GUARDED_BY(mutex_);
    std::set<TalkSender> admitted_ OV_GUARDED_BY(mutex_);  // at most settings_.maxTalkSenders
    std::unique_ptr<TalkFloor> floor_ OV_GUARDED_BY(mutex_);
    Floor holder_ OV_GUARDED_BY(mutex_);  // the last one who was audible
    MonotonicTime audibleAt_ OV_GUARDED_BY(mutex_);
    std::unique_ptr<TalkMixer> mixer_ OV_GUARDED_BY(mutex_);  // null unless senders are mixed
    std::vector<std::int16_t> sum_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "hostapi/audio/IMediaPlayer.h"
#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"
#include "refhost/talkback/TalkFloor.h"
#include "refhost/talkback/TalkMixer.h"
#include "refhost/talkback/TalkSettings.h"

namespace refhost
{

/// What all talk-back sessions of the device have in common: the settings, who is heard, and the
/// output. Threads: any; one lock of its own, under which the player is called.
class SharedOutput
{
public:
    using TalkSender = TalkFloor::TalkSender;

    /// The one of the process; made at the first call, never destroyed.
    static SharedOutput& instance();

    explicit SharedOutput(const TalkSettings& settings);
    ~SharedOutput();
    SharedOutput(const SharedOutput&) = delete;
    SharedOutput& operator=(const SharedOutput&) = delete;

    /// Changes the settings; call it while there is no session.
    void configure(const TalkSettings& settings);
    TalkSettings settings() const;

    /// A session is set up.
    /// \returns false when another one has the output and this one is refused, or when there are as many as
    ///          the settings allow
    bool admit(TalkSender sender);
    /// A session pauses: others may be heard.
    void pause(TalkSender sender);
    /// A session ends.
    void leave(TalkSender sender);

    /// Audio of a session came. A change of who owns the output is told in the log.
    /// \param name  what the log calls the sender
    /// \returns true when the audio is to be decoded and given to play()
    bool claim(TalkSender sender, const std::string& name, MonotonicTime now);

    /// Plays decoded audio of a sender that is heard.
    /// \returns 0, or the player's code
    int play(TalkSender sender, const std::vector<std::int16_t>& samples, IMediaPlayer& player);

    /// Plays what is due by the clock, where senders are mixed; call it every few milliseconds.
    /// \returns 0, or the player's code
    int pump(IMediaPlayer& player, MonotonicTime now);

private:
    static int give(IMediaPlayer& player, const std::vector<std::int16_t>& samples);

    mutable Mutex mutex_;
    TalkSettings settings_ OV_GUARDED_BY(mutex_);
    std::set<TalkSender> admitted_ OV_GUARDED_BY(mutex_);  // at most settings_.maxTalkSenders
    std::unique_ptr<TalkFloor> floor_ OV_GUARDED_BY(mutex_);
    std::unique_ptr<TalkMixer> mixer_ OV_GUARDED_BY(mutex_);  // null where senders are not mixed
    std::vector<std::int16_t> sum_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "live/IRTSPController.h"
#include "refhost/base/StateMachine.h"
#include "refhost/rtp/RtpTransport.h"
#include "refhost/rtsp/session/InterleavedChannels.h"
#include "support/SafePointer.h"

namespace refhost
{

/// One track's transport, made by SETUP.
struct TrackDelivery
{
    std::optional<SafePointer<RtpTransport>> transport;
    std::unique_ptr<InterleavedChannels::Lease> channels;  ///< null for UDP
    std::uint64_t connection = 0;                          ///< serial of its connection; 0 for UDP

    /// Whether other sessions send through it: then it is neither held nor closed for this one. Requires: a
    /// transport.
    bool shared() const
    {
        return (*transport)->traits().shared;
    }
};

/// The state of a track that was set up.
///
/// | from      | to ready                   | to preparing         | to starting   | to playing    |
/// |-----------|----------------------------|----------------------|---------------|---------------|
/// | ready     |                            | PLAY has to wait     | PLAY          | illegal       |
/// | preparing | another PLAY; one failed   |                      | the same PLAY | illegal       |
/// | starting  | PAUSE; its own PLAY failed | illegal              |               | the next PLAY |
/// | playing   | PAUSE                      | illegal              | illegal       |               |
enum class SessionTrackState
{
    ready,
    preparing,  ///< prepared by a PLAY that waits for a seek
    starting,   ///< plays since the last PLAY; paused again if that fails for another track
    playing
};

constexpr auto tableOf(SessionTrackState)
{
    using S = SessionTrackState;
    return StateTable<S, 4>{"session track",
                            {{
                                {S::ready, "ready", anyOf(S::preparing, S::starting)},
                                {S::preparing, "preparing", anyOf(S::ready, S::starting)},
                                {S::starting, "starting", anyOf(S::ready, S::playing)},
                                {S::playing, "playing", anyOf(S::ready)},
                            }}};
}

/// A track that a client set up: its transport and state. Threads: its session's lock.
class SessionTrack
{
public:
    explicit SessionTrack(std::string id);

    const std::string id;
    TrackDelivery delivery;

    SessionTrackState state() const
    {
        return state_.state();
    }

    bool playing() const
    {
        return state_.is(SessionTrackState::starting) || state_.is(SessionTrackState::playing);
    }

    /// Whether the last PLAY prepared or started it.
    bool startedByPlay() const
    {
        return state_.is(SessionTrackState::preparing) || state_.is(SessionTrackState::starting);
    }

    /// Another PLAY starts: the track no longer belongs to the previous one.
    void startPlay();
    /// The controller plays it.
    void play();
    /// The controller prepares it; a playing track keeps playing.
    void prepare();
    /// It neither plays nor prepares to.
    void pause();

    /// Whether the client sends on it. Only the first call reads the controller's description.
    bool isBackChannel(SafePointer<IRTSPController>& controller);

    /// Closes the transport unless shared, and releases the channels.
    void close();

private:
    StateMachine<SessionTrackState> state_{SessionTrackState::ready};
    std::optional<bool> backChannel_;  // nothing until the first call
};

}  // namespace refhost

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

/// One track's transport, as SETUP made it.
struct TrackDelivery
{
    std::optional<SafePointer<RtpTransport>> transport;
    std::unique_ptr<InterleavedChannels::Lease> channels;  ///< null for UDP
    std::uint64_t connection = 0;  ///< serial of the connection that it ends with; 0 for UDP

    /// Other sessions send through it too: it is neither held nor closed for this one.
    /// Requires: a transport.
    bool shared() const
    {
        return (*transport)->traits().shared;
    }
};

/// What a track that was set up does.
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
    preparing,  ///< asked to play by a PLAY that waits for a recording's place
    starting,   ///< plays, by the last PLAY: where that fails for another track, it is paused again
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

/// A track that a client set up: its transport and whether it plays. Threads: its session's lock.
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

    /// The last PLAY asked for it, or started it.
    bool startedByPlay() const
    {
        return state_.is(SessionTrackState::preparing) || state_.is(SessionTrackState::starting);
    }

    /// Another PLAY starts: what the one before started is not its own.
    void beginPlay();
    /// The controller plays it.
    void play();
    /// The controller has to get it ready to play; one that plays goes on meanwhile.
    void prepare();
    /// Neither plays nor prepares to.
    void pause();

    /// The client sends on it. Looks at the controller's description, which is copied for it, at the first
    /// call alone.
    bool isBackChannel(SafePointer<IRTSPController>& controller);

    /// Closes the transport unless it is shared, and gives the channels back.
    void close();

private:
    StateMachine<SessionTrackState> state_{SessionTrackState::ready};
    std::optional<bool> backChannel_;  // nothing while nobody asked
};

}  // namespace refhost

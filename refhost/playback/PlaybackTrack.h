#pragma once
// Tested by tests/refhost/playback/PlaybackTracks_test.cpp, tests/refhost/playback/PlaybackPump_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "hostapi/description/RTPPacketInfo.h"
#include "hostapi/description/SubMediaInfo.h"
#include "refhost/base/StateMachine.h"
#include "refhost/playback/PlayTimeline.h"
#include "refhost/playback/PlaybackSettings.h"
#include "refhost/rtp/RtpSender.h"

namespace refhost
{

class PlaybackSession;

/// What a track does.
///
/// | from    | to playing | to paused | to silent                      |
/// |---------|------------|-----------|--------------------------------|
/// | silent  | start()    | illegal   |                                |
/// | playing |            | pause()   | illegal: it pauses first       |
/// | paused  | start()    |           | sendBye(), which sends BYE  |
enum class PlaybackTrackState
{
    silent,  ///< nothing was played since the last BYE
    playing,
    paused
};

constexpr auto tableOf(PlaybackTrackState)
{
    using S = PlaybackTrackState;
    return StateTable<S, 3>{"playback track",
                            {{
                                {S::silent, "silent", anyOf(S::playing)},
                                {S::playing, "playing", anyOf(S::paused)},
                                {S::paused, "paused", anyOf(S::playing, S::silent)},
                            }}};
}

/// One track of a playback session: its state, its transport and its timestamps.
///
/// Threads: under the session's lock, except for the TransportListener's operations, which take it.
class PlaybackTrack : public TransportListener
{
public:
    PlaybackTrack(std::weak_ptr<PlaybackSession> session, const SubMediaInfo& info, int payloadSize,
                  const RtcpWriter::Name& name, const PlaybackSettings& settings);
    ~PlaybackTrack() noexcept override;

    const std::string id;
    const std::string encodingName;
    const bool video;
    const int payloadSize;
    const RtpClock rtpClock;

    RtpSender sender;
    /// RTP-Info of the last play().
    RTPPacketInfo first;

    bool playing() const
    {
        return state_.is(PlaybackTrackState::playing);
    }

    void start()
    {
        state_.enter(PlaybackTrackState::playing);
    }

    /// Does nothing for a track that does not play.
    void pause()
    {
        if (playing())
        {
            state_.enter(PlaybackTrackState::paused);
        }
    }

    /// The RTP timestamp of an instant of the player's time.
    std::uint32_t timestamp(PlayTime play) const;
    /// Whether a block of audio must be skipped: at a scale above 1 there is more audio than time.
    /// \param end  player's time at the block's end
    bool audioIsFull(PlayTime end) const;
    /// The timestamp of a block of audio; a block that nearly follows the last one follows it exactly.
    /// \param tolerance  max. deviation
    std::uint32_t audioTimestamp(PlayTime play, Duration tolerance) const;
    /// Notes that a unit was sent.
    /// \param length  of a block of audio; 0 for a frame
    void sent(std::uint32_t timestamp, Duration length);
    /// Notes that the next unit does not follow the last one.
    /// \param discontinuity  whether the client must know
    void breakOff(bool discontinuity)
    {
        audioFollows_ = false;
        brokenOff_ = discontinuity;
    }

    /// Whether the next unit is the first one after a gap or a seek.
    bool brokenOff() const
    {
        return brokenOff_;
    }

    /// Notes that the client is active.
    void noteActivity();
    /// Whether a client over UDP was inactive for longer than PlaybackSettings::maxSilence.
    bool silent() const;

    /// Sends BYE if the track played since the last one. A track that had nothing to send sends it, too,
    /// against RFC 3550, section 6.3.7: players end when every track has sent BYE.
    /// Requires: it does not play.
    /// \param play  the player's time now
    void sendBye(WallTime wall, PlayTime play);

    void onTransportReady() override;
    void onRtcp(const std::uint8_t* data, std::size_t size) override;

private:
    const std::weak_ptr<PlaybackSession> session_;
    const HostClock& clock_;
    const Duration maxSilence_;
    MonotonicTime lastActivity_;
    StateMachine<PlaybackTrackState> state_{PlaybackTrackState::silent};
    bool brokenOff_ = false;
    bool audioFollows_ = false;
    std::uint32_t audioNext_ = 0;  // timestamp at the end of the last block
};

}  // namespace refhost

#pragma once
// Tested by tests/refhost/ingest/client/RtspClient_test.cpp, tests/refhost/ingest/client/RtspClientQuirks_test.cpp.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/ingest/client/CameraDatagrams.h"
#include "refhost/ingest/client/CameraHeaders.h"
#include "refhost/ingest/client/RtspClientEvents.h"

namespace refhost
{

/// The tracks that are read of a camera, and what carries each: a channel of its connection or UDP ports.
/// Threads: one at a time.
class CameraTracks
{
public:
    static constexpr int maxChannels = 256;

    struct Track
    {
        std::size_t index = 0;  ///< in the description
        std::string control;    ///< its URL
        bool video = false;
        bool playing = false;   ///< the camera has set it up
        int channel = 0;        ///< of RTP: what is asked for, then what the camera sends in
        int reportChannel = 1;  ///< of RTCP
        std::unique_ptr<CameraDatagrams> datagrams;  ///< null when it comes in channels
    };

    /// What an answer to SETUP means for a track.
    enum class Play
    {
        playing,
        channelTaken,    ///< another track has the channel
        otherTransport,  ///< the camera chose one that was not requested
    };

    /// What a channel carries.
    struct Channel
    {
        std::uint16_t index = 0;  ///< of the track in the description
        bool used = false;
        bool reports = false;  ///< RTCP
    };

    /// \param chosen  indices of `described`; those that are none, and repeated ones, are left out
    void choose(const std::vector<CameraTrack>& described, const std::vector<std::size_t>& chosen);

    bool empty() const
    {
        return tracks_.empty();
    }
    /// The one to set up next; null when all were.
    Track* next();
    /// Goes on to the next one.
    void advance()
    {
        ++next_;
    }
    bool anyPlaying() const;
    bool anyVideo() const;

    /// What to request in SETUP's Transport.
    static std::string transportOf(const Track& track);
    /// Takes an answer to SETUP: with `playing` the track plays. Some cameras name the same channels for all
    /// tracks, and use those that were requested; some use channels though UDP was requested.
    Play play(Track& track, const TransportReply& reply);

    /// Opens paths for the tracks that come over UDP.
    void punch();
    /// Sends RTCP over UDP.
    /// \returns false when the track does not play, or does not come over UDP, or it was dropped
    bool sendDatagram(std::size_t index, const std::uint8_t* data, std::size_t size);
    /// Ends what comes over UDP.
    void closeDatagrams();

    /// \param channel  0 to 255
    const Channel& channel(int channel) const
    {
        return channels_[static_cast<std::size_t>(channel)];
    }
    /// The channel to send RTCP about a track in; -1 when it does not play, or comes over UDP.
    int reportChannelOf(std::size_t index) const;

    /// One row for each track that plays, with what RTP-Info says of it: by its URL, which may lack host and path, or
    /// by its place.
    std::vector<CameraPlayInfo> playInfos(const std::vector<RtpInfo>& infos) const;

private:
    bool isFree(int channel) const
    {
        return !channels_[static_cast<std::size_t>(channel)].used;
    }

    const Track* playingTrack(std::size_t index) const;

    std::vector<Track> tracks_;
    std::size_t next_ = 0;
    std::array<Channel, maxChannels> channels_{};
};

}  // namespace refhost

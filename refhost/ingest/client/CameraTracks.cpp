#include "refhost/ingest/client/CameraTracks.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace refhost
{
namespace
{

/// What stands behind the last slash.
std::string_view lastPart(std::string_view url)
{
    return url.substr(url.rfind('/') + 1);
}

const RtpInfo* infoOf(const std::vector<RtpInfo>& infos, std::string_view control, std::size_t place)
{
    const auto found = std::find_if(infos.begin(), infos.end(),
                                    [&](const RtpInfo& info)
                                    { return !info.url.empty() && lastPart(info.url) == lastPart(control); });
    if (found != infos.end())
    {
        return &*found;
    }
    return place < infos.size() && infos[place].url.empty() ? &infos[place] : nullptr;
}

}  // namespace

void CameraTracks::choose(const std::vector<CameraTrack>& described, const std::vector<std::size_t>& chosen)
{
    for (const std::size_t index : chosen)
    {
        const bool repeated = std::any_of(tracks_.begin(), tracks_.end(),
                                          [&](const Track& track) { return track.index == index; });
        if (index < described.size() && !repeated)
        {
            Track track;
            track.index = index;
            track.control = described[index].control;
            track.video = described[index].kind == MediaKind::video;
            track.channel = static_cast<int>(2 * tracks_.size());
            track.reportChannel = track.channel + 1;
            tracks_.push_back(std::move(track));
        }
    }
}

CameraTracks::Track* CameraTracks::next()
{
    return next_ < tracks_.size() ? &tracks_[next_] : nullptr;
}

bool CameraTracks::anyPlaying() const
{
    return std::any_of(tracks_.begin(), tracks_.end(), [](const Track& track) { return track.playing; });
}

bool CameraTracks::anyVideo() const
{
    return std::any_of(tracks_.begin(), tracks_.end(), [](const Track& track) { return track.video; });
}

std::string CameraTracks::transportOf(const Track& track)
{
    if (track.datagrams != nullptr)
    {
        const int port = track.datagrams->port();
        return fmt::format("RTP/AVP;unicast;client_port={}-{}", port, port + 1);
    }
    return fmt::format("RTP/AVP/TCP;unicast;interleaved={}-{}", track.channel, track.reportChannel);
}

CameraTracks::Play CameraTracks::play(Track& track, const TransportReply& reply)
{
    const bool udp = track.datagrams != nullptr && (reply.kind == TransportReply::Kind::udp ||
                                                    reply.kind == TransportReply::Kind::asRequested);
    if (udp)
    {
        track.datagrams->setSource(reply);
        track.playing = true;
        return Play::playing;
    }
    if (reply.kind == TransportReply::Kind::udp || reply.kind == TransportReply::Kind::other)
    {
        return Play::otherTransport;
    }
    track.datagrams = nullptr;
    if (reply.channel && isFree(*reply.channel))
    {
        track.channel = *reply.channel;
        track.reportChannel = reply.reportChannel.value_or((track.channel + 1) % maxChannels);
    }
    if (!isFree(track.channel))
    {
        return Play::channelTaken;
    }
    track.playing = true;
    const auto index = static_cast<std::uint16_t>(track.index);
    channels_[static_cast<std::size_t>(track.channel)] = {index, true, false};
    if (isFree(track.reportChannel))
    {
        channels_[static_cast<std::size_t>(track.reportChannel)] = {index, true, true};
    }
    return Play::playing;
}

void CameraTracks::punch()
{
    for (const Track& track : tracks_)
    {
        if (track.playing && track.datagrams != nullptr)
        {
            track.datagrams->punch();
        }
    }
}

bool CameraTracks::sendDatagram(std::size_t index, const std::uint8_t* data, std::size_t size)
{
    const Track* const track = playingTrack(index);
    return track != nullptr && track->datagrams != nullptr && track->datagrams->sendReport(data, size);
}

void CameraTracks::closeDatagrams()
{
    for (const Track& track : tracks_)
    {
        if (track.datagrams != nullptr)
        {
            track.datagrams->close();
        }
    }
}

const CameraTracks::Track* CameraTracks::playingTrack(std::size_t index) const
{
    const auto found =
        std::find_if(tracks_.begin(), tracks_.end(),
                     [&](const Track& track) { return track.playing && track.index == index; });
    return found == tracks_.end() ? nullptr : &*found;
}

int CameraTracks::reportChannelOf(std::size_t index) const
{
    const Track* const track = playingTrack(index);
    return track == nullptr || track->datagrams != nullptr ? -1 : track->reportChannel;
}

std::vector<CameraPlayInfo> CameraTracks::playInfos(const std::vector<RtpInfo>& infos) const
{
    std::vector<CameraPlayInfo> rows;
    for (const Track& track : tracks_)
    {
        if (track.playing)
        {
            const RtpInfo* const info = infoOf(infos, track.control, rows.size());
            rows.push_back({track.index, info == nullptr ? std::nullopt : info->sequence,
                            info == nullptr ? std::nullopt : info->timestamp});
        }
    }
    return rows;
}

}  // namespace refhost

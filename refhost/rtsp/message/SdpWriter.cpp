#include "refhost/rtsp/message/SdpWriter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "refhost/base/Decimal.h"
#include "refhost/base/Times.h"

namespace refhost
{
namespace
{

void appendInt(std::string& out, int number)
{
    appendDecimal(out, number < 0 ? 0 : static_cast<std::uint64_t>(number));
}

/// Appends a number with up to `maxDecimals` decimals, independent of the locale: 25, 12.5, 29.97.
void appendFraction(std::string& out, double number, std::size_t maxDecimals)
{
    const auto unit = static_cast<std::uint64_t>(std::llround(std::pow(10, maxDecimals)));
    const auto parts = static_cast<std::uint64_t>(std::llround(number * static_cast<double>(unit)));
    appendDecimal(out, parts / unit);
    appendDecimals(out, parts % unit, maxDecimals, 0);
}

/// Appends the connection line: the group, or a wildcard where SETUP decides.
void appendConnection(std::string& out, const SdpWriter::Origin& origin,
                      const MulticastDestination* destination)
{
    out += "\r\nc=IN ";
    if (destination == nullptr)
    {
        out += origin.ipv6 ? "IP6 ::" : "IP4 0.0.0.0";
        return;
    }
    out.append("IP4 ").append(destination->group.addressText()).append("/");
    appendInt(out, destination->ttl);
}

/// \param port  0 where SETUP decides
/// \param secure  sent as SRTP
void appendTrack(std::string& out, const SubMediaInfo& track, int port, bool secure)
{
    out.append("m=").append(track.mediaType).append(" ");
    appendInt(out, port);
    out += secure ? " RTP/SAVP " : " RTP/AVP ";
    appendInt(out, track.payloadType);
    out += "\r\n";
    if (track.bitRate > 0)
    {
        out += "b=AS:";
        appendInt(out, track.bitRate);
        out += "\r\n";
    }
    out += "a=rtpmap:";
    appendInt(out, track.payloadType);
    out.append(" ").append(track.encodingName).append("/");
    appendInt(out, track.clockRate);
    if (track.channels > 1)
    {
        out += '/';
        appendInt(out, track.channels);
    }
    out += "\r\n";
    if (!track.formatParameters.empty())
    {
        out += "a=fmtp:";
        appendInt(out, track.payloadType);
        out.append(" ").append(track.formatParameters).append("\r\n");
    }
    if (track.width > 0 && track.height > 0)
    {
        out += "a=framesize:";
        appendInt(out, track.payloadType);
        out += ' ';
        appendInt(out, track.width);
        out += '-';
        appendInt(out, track.height);
        out += "\r\na=x-dimensions:";
        appendInt(out, track.width);
        out += ',';
        appendInt(out, track.height);
        out += "\r\n";
    }
    if (track.frameRate > 0 && track.frameRate < 1000)
    {
        out += "a=framerate:";
        appendFraction(out, track.frameRate, 3);
        out += "\r\n";
    }
    out.append("a=control:").append(track.trackId).append("\r\n");
}

void appendKeys(std::string& out, const std::vector<SdpWriter::KeyLines>& keys, const std::string& trackId)
{
    for (const SdpWriter::KeyLines& lines : keys)
    {
        if (lines.trackId == trackId)
        {
            out += lines.text;
        }
    }
}

/// Appends the direction from the client's view: it sends talk-back and receives everything else.
void appendDirection(std::string& out, const SubMediaInfo& track)
{
    out += track.getAudioBackInfoFlag() ? "a=sendonly\r\n" : "a=recvonly\r\n";
}

bool hasBackChannel(const MediaInfo& info)
{
    const auto& tracks = info.getAllSubMediaInfo();
    return std::any_of(tracks.begin(), tracks.end(),
                       [](const SubMediaInfo& track) { return track.getAudioBackInfoFlag(); });
}

/// Appends the range of a recording (RFC 2326, section C.1.5) in a single unit, because clients expect one
/// range line, and few know absolute time.
void appendRange(std::string& out, const MediaInfo& info, RangeHeader::Unit unit)
{
    if (info.recordSeconds <= 0)
    {
        out += "a=range:npt=now-\r\n";
        return;
    }
    std::string seconds;
    appendFraction(seconds, info.recordSeconds, 6);
    out += "a=range:";
    if (unit == RangeHeader::Unit::clock)
    {
        const Duration begin(info.recordBeginTime);
        const Duration end = begin + durationOf(std::chrono::duration<double>(info.recordSeconds));
        RangeHeader::append(out, unit, std::chrono::round<RangeHeader::Position>(begin),
                            std::chrono::round<RangeHeader::Position>(end));
    }
    else
    {
        out.append("npt=0-").append(seconds);
    }
    out.append("\r\na=length:npt=").append(seconds).append("\r\n");
}

}  // namespace

SdpWriter::SdpWriter(std::uint64_t version) : version_(version) {}

void SdpWriter::append(std::string& out, const MediaInfo& info, const Origin& origin,
                       const MulticastDestination* destination, RangeHeader::Unit unit,
                       const std::vector<KeyLines>* keys) const
{
    out += "v=0\r\no=- ";
    appendDecimal(out, version_);
    out += " 1 IN ";
    out.append(origin.ipv6 ? "IP6 " : "IP4 ").append(origin.address);
    out += "\r\ns=";
    out += info.mediaUrl.empty() ? std::string_view("-") : std::string_view(info.mediaUrl);
    appendConnection(out, origin, destination);
    out += "\r\nt=0 0\r\na=control:*\r\n";
    appendRange(out, info, unit);
    const bool directed = hasBackChannel(info);
    int number = 0;
    for (const SubMediaInfo& track : info.getAllSubMediaInfo())
    {
        appendTrack(out, track, destination == nullptr ? 0 : destination->group.portOf(number),
                    keys != nullptr);
        if (keys != nullptr)
        {
            appendKeys(out, *keys, track.trackId);
        }
        if (directed)
        {
            appendDirection(out, track);
        }
        ++number;
    }
}

}  // namespace refhost

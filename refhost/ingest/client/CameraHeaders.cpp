#include "refhost/ingest/client/CameraHeaders.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "refhost/base/Decimal.h"
#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

constexpr Duration minKeepAlive = std::chrono::seconds(1);
constexpr Duration maxKeepAlive = std::chrono::seconds(30);
constexpr std::size_t maxSessionId = 512;
constexpr int maxChannel = 255;
constexpr int maxPort = 65535;

std::string_view trimmed(std::string_view text)
{
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '"'; };
    while (!text.empty() && isSpace(text.front()))
    {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(text.back()))
    {
        text.remove_suffix(1);
    }
    return text;
}

/// Cuts off what stands before the first `separator`, and that.
std::string_view takeUntil(std::string_view& text, char separator)
{
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return trimmed(part);
}

/// Reads "first-second", both from `min` to `max`; the second may be missing.
void takeRange(std::string_view text, int min, int max, std::optional<int>& first, std::optional<int>& second)
{
    const auto valid = [&](std::string_view number)
    {
        const auto value = leadingDecimal<int>(number);
        return value && *value >= min && *value <= max ? value : std::nullopt;
    };
    first = valid(takeUntil(text, '-'));
    second = first ? valid(trimmed(text)) : std::nullopt;
}

/// What may stand in a header that is sent.
std::string printable(std::string_view text)
{
    std::string result;
    std::copy_if(text.begin(), text.end(), std::back_inserter(result),
                 [](char c) { return c > ' ' && c < 0x7f; });
    return result;
}

bool offersMethod(const CameraMessage& answer, std::string_view method)
{
    std::string_view methods = answer.header("public");
    while (!methods.empty())
    {
        if (equalsIgnoringCase(takeUntil(methods, ','), method))
        {
            return true;
        }
    }
    return false;
}

}  // namespace

SessionReply SessionReply::read(std::string_view value)
{
    SessionReply reply;
    reply.id = printable(takeUntil(value, ';').substr(0, maxSessionId));
    while (!value.empty())
    {
        std::string_view parameter = takeUntil(value, ';');
        if (equalsIgnoringCase(takeUntil(parameter, '='), "timeout"))
        {
            const auto seconds = leadingDecimal<std::int64_t>(trimmed(parameter)).value_or(0);
            reply.timeout = seconds > 0
                                ? std::min(saturatedDuration(std::chrono::seconds(seconds)), maxTimeout)
                                : defaultTimeout;
        }
    }
    return reply;
}

Duration SessionReply::keepAliveInterval() const
{
    return std::clamp(timeout / 2, minKeepAlive, maxKeepAlive);
}

TransportReply TransportReply::read(std::string_view value)
{
    TransportReply reply;
    value = takeUntil(value, ',');
    reply.kind = value.empty() ? Kind::asRequested : Kind::other;
    bool multicast = false;
    while (!value.empty())
    {
        std::string_view parameter = takeUntil(value, ';');
        const std::string name = lowerCase(takeUntil(parameter, '='));
        multicast = multicast || name == "multicast";
        if (name == "rtp/avp/tcp" || name == "rtp/avpf/tcp")
        {
            reply.kind = Kind::interleaved;
        }
        else if (name == "rtp/avp" || name == "rtp/avp/udp" || name == "rtp/avpf" || name == "rtp/avpf/udp")
        {
            reply.kind = Kind::udp;
        }
        else if (name == "interleaved")
        {
            reply.kind = Kind::interleaved;
            takeRange(parameter, 0, maxChannel, reply.channel, reply.reportChannel);
        }
        else if (name == "server_port")
        {
            takeRange(parameter, 1, maxPort, reply.serverPort, reply.serverReportPort);
        }
        else if (name == "source")
        {
            reply.source = SocketAddress::parse(std::string(trimmed(parameter)));
        }
    }
    reply.kind = multicast ? Kind::other : reply.kind;
    return reply;
}

std::vector<RtpInfo> RtpInfo::read(std::string_view value)
{
    std::vector<RtpInfo> infos;
    while (!value.empty() && infos.size() < maxParts)
    {
        std::string_view part = takeUntil(value, ',');
        RtpInfo info;
        while (!part.empty())
        {
            std::string_view parameter = takeUntil(part, ';');
            const std::string name = lowerCase(takeUntil(parameter, '='));
            parameter = trimmed(parameter);
            if (name == "url")
            {
                info.url = parameter;
            }
            else if (name == "seq")
            {
                info.sequence = leadingDecimal<std::uint16_t>(parameter);
            }
            else if (name == "rtptime")
            {
                info.timestamp = leadingDecimal<std::uint32_t>(parameter);
            }
        }
        infos.push_back(std::move(info));
    }
    return infos;
}

std::optional<Duration> retryAfterOf(const CameraMessage& answer)
{
    const auto seconds = parseDecimal<std::int64_t>(trimmed(answer.header("retry-after")));
    if (!seconds || *seconds < 0)
    {
        return std::nullopt;
    }
    return std::min<Duration>(saturatedDuration(std::chrono::seconds(*seconds)), std::chrono::hours(24));
}

const char* keepAliveMethodOf(const CameraMessage& answer)
{
    if (offersMethod(answer, "GET_PARAMETER"))
    {
        return "GET_PARAMETER";
    }
    return offersMethod(answer, "SET_PARAMETER") && !offersMethod(answer, "OPTIONS") ? "SET_PARAMETER"
                                                                                     : "OPTIONS";
}

}  // namespace refhost

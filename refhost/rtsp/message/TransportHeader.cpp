#include "refhost/rtsp/message/TransportHeader.h"

#include "refhost/base/Decimal.h"
#include "refhost/base/HeaderText.h"
#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

constexpr int largestPort = 65535;
constexpr int largestChannel = 255;

/// Parses "4588", which means 4588 and 4589, or "4588-4589".
bool parsePair(std::string_view text, int min, int max, int& first, int& second)
{
    const std::size_t dash = text.find('-');
    const auto low = parseDecimal<std::uint64_t>(text.substr(0, dash), static_cast<std::uint64_t>(max));
    if (!low)
    {
        return false;
    }
    first = static_cast<int>(*low);
    second = first + 1;
    if (dash != std::string_view::npos)
    {
        const auto high = parseDecimal<std::uint64_t>(text.substr(dash + 1), static_cast<std::uint64_t>(max));
        if (!high)
        {
            return false;
        }
        second = static_cast<int>(*high);
    }
    return first >= min && second > first && second <= max;
}

/// Accepts "PLAY", "play" or a list with it: this server does not record from clients.
bool modePlays(std::string_view value)
{
    value = HeaderText::unquote(value);
    while (!value.empty())
    {
        if (equalsIgnoringCase(HeaderText::unquote(HeaderText::cut(value, ',')), "PLAY"))
        {
            return true;
        }
    }
    return false;
}

/// Accepts RTP/AVP and RTP/SAVP, each with or without the protocol below. Profiles with feedback are not supported.
bool acceptsProfile(std::string_view profile, TransportChoice& choice)
{
    for (const std::string_view known : {"RTP/AVP", "RTP/SAVP"})
    {
        if (!equalsIgnoringCase(profile.substr(0, known.size()), known))
        {
            continue;
        }
        const std::string_view below = profile.substr(known.size());
        choice.secure = known == "RTP/SAVP";
        choice.interleaved = equalsIgnoringCase(below, "/TCP");
        return choice.interleaved || below.empty() || equalsIgnoringCase(below, "/UDP");
    }
    return false;
}

std::optional<TransportChoice> parseChoice(std::string_view text)
{
    TransportChoice choice;
    bool unicast = false;
    if (!acceptsProfile(HeaderText::cut(text, ';'), choice))
    {
        return std::nullopt;
    }
    while (!text.empty())
    {
        const std::string_view parameter = HeaderText::cut(text, ';');
        const std::size_t equals = parameter.find('=');
        const std::string_view name = HeaderText::trim(parameter.substr(0, equals));
        const std::string_view value = equals == std::string_view::npos
                                           ? std::string_view()
                                           : HeaderText::trim(parameter.substr(equals + 1));
        bool good = true;
        if (equalsIgnoringCase(name, "multicast"))
        {
            choice.multicast = true;
        }
        else if (equalsIgnoringCase(name, "unicast"))
        {
            unicast = true;
        }
        else if (equalsIgnoringCase(name, "mode"))
        {
            good = modePlays(value);
        }
        else if (equalsIgnoringCase(name, "client_port"))
        {
            good = parsePair(value, TransportHeader::minPort, largestPort, choice.rtpPort, choice.rtcpPort);
        }
        else if (equalsIgnoringCase(name, "interleaved"))
        {
            good = parsePair(value, 0, largestChannel, choice.rtpChannel, choice.rtcpChannel);
        }
        if (!good)
        {
            return std::nullopt;
        }
    }
    // The default is multicast (RFC 2326, section 12.39), but a choice with client ports means unicast.
    choice.multicast = choice.multicast || (!choice.interleaved && !unicast && choice.rtpPort == 0);
    return choice;
}

bool isOneOf(int port, int serverPort)
{
    return serverPort != 0 && (port == serverPort || port == serverPort + 1);
}

bool acceptable(const TransportChoice& choice, bool multicast, int serverPort)
{
    if (isOneOf(choice.rtpPort, serverPort) || isOneOf(choice.rtcpPort, serverPort))
    {
        return false;
    }
    const bool complete = choice.multicast ? !choice.interleaved : choice.interleaved || choice.rtpPort != 0;
    return complete && choice.multicast == multicast;
}

}  // namespace

std::optional<TransportChoice> TransportHeader::choose(std::string_view value, bool multicast, int serverPort,
                                                       const Admit& admit)
{
    while (!value.empty())
    {
        auto choice = parseChoice(HeaderText::cut(value, ','));
        if (choice && acceptable(*choice, multicast, serverPort) && (!admit || admit(*choice)))
        {
            return choice;
        }
    }
    return std::nullopt;
}

}  // namespace refhost

#pragma once

#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

#include "refhost/config/Config.h"

namespace refhost
{

/// A section [name] at the top of the file, at most once.
template <typename Section, typename Parent>
struct SingleSection
{
    using Values = Section;

    std::string_view name;
    std::string_view purpose;  ///< comment above it in a dump
    Section Parent::*values;

    std::string heading() const
    {
        return "[" + std::string(name) + "]";
    }
};

/// A list of sections [[path]].
template <typename Section, typename Parent>
struct SectionList
{
    using Values = Section;

    std::string_view name;
    std::string_view path;     ///< `name` preceded by those of the enclosing sections
    std::string_view purpose;  ///< comment above the first one in a dump; empty: none
    std::vector<Section> Parent::*values;
    Section (*example)() = nullptr;  ///< written as a comment in a dump without such a section; may be null

    std::string heading() const
    {
        return "[[" + std::string(path) + "]]";
    }
};

/// The sections directly within `Section`, in the order of the file: a tuple of SingleSection and SectionList.
/// `ServerConfig` is the whole file.
template <typename Section>
constexpr auto configSections()
{
    if constexpr (std::is_same_v<Section, ServerConfig>)
    {
        using Server = ServerConfig;
        return std::make_tuple(
            SingleSection<LimitsConfig, Server>{"limits", "What the server refuses to go beyond.",
                                                &Server::limits},
            SingleSection<AuthConfig, Server>{"auth", "How users may log in.", &Server::auth},
            SingleSection<TlsConfig, Server>{
                "tls", "RTSP over TLS (rtsps://): off until there is a certificate.", &Server::tls},
            SingleSection<TunnelConfig, Server>{
                "tunnel", "RTSP through HTTP and WebSocket, on the ports of RTSP.", &Server::tunnel},
            SingleSection<HttpConfig, Server>{"http", "State, metrics and control of the server over HTTP.",
                                              &Server::http},
            SingleSection<SrtpConfig, Server>{"srtp", "Encrypted media over UDP (SRTP).", &Server::srtp},
            SingleSection<TalkBackConfig, Server>{"talk-back", "Audio that clients send to the device.",
                                                  &Server::talkBack},
            SingleSection<HooksConfig, Server>{"hooks",
                                               "What is run when something happens: a command with JSON on "
                                               "its standard input, or an http:// "
                                               "or https:// URL that JSON is posted to.",
                                               &Server::hooks},
            SingleSection<MulticastConfig, Server>{
                "multicast", "Streams that are sent to many viewers at once: orv/multicast.",
                &Server::multicast},
            SingleSection<RecordingConfig, Server>{
                "recording", "What is recorded: streams with record = \"always\" or \"events\".",
                &Server::recording},
            SectionList<GroupConfig, Server>{"group", "group",
                                             "What the users of a group may do, with which cameras: \"*\", "
                                             "\"none\", or numbers such as \"1, 3-5\".",
                                             &Server::groups,
                                             [] {
                                                 return GroupConfig{"guards", {"*", "1-4", "1", "none"}};
                                             }},
            SectionList<UserConfig, Server>{
                "user", "user",
                "Who may do what, with which cameras; without any [[user]] everybody may do everything, and "
                "so "
                "may a user for whom neither a group nor live, playback, talk or admin is given.",
                &Server::users,
                [] {
                    return UserConfig{"admin", "", "", {"*", "*", "*", "*"}};
                }},
            SectionList<CameraConfig, Server>{"camera", "camera", "", &Server::cameras});
    }
    else if constexpr (std::is_same_v<Section, CameraConfig>)
    {
        return std::make_tuple(
            SectionList<StreamConfig, CameraConfig>{"stream", "camera.stream", "", &CameraConfig::streams});
    }
    else
    {
        return std::make_tuple();
    }
}

/// Calls `visit` with each section directly within `Section`.
template <typename Section, typename Visit>
void eachSectionIn(const Visit& visit)
{
    std::apply([&](const auto&... sections) { (visit(sections), ...); }, configSections<Section>());
}

/// The record that a visited section fills.
template <typename Visited>
using ValuesOf = typename std::decay_t<Visited>::Values;

}  // namespace refhost

#include "refhost/config/ConfigKeys.h"

#include "refhost/config/ConfigKeyMakers.h"

namespace refhost
{
namespace
{

using namespace ConfigKeyMakers;

using Server = ServerConfig;
using Limits = LimitsConfig;
using TalkBack = TalkBackConfig;
using Multicast = MulticastConfig;
using Recording = RecordingConfig;
using Group = GroupConfig;
using User = UserConfig;

// The keys of what a user or group may do.
template <typename Section>
void addGrants(std::vector<ConfigKey<Section>>& keys)
{
    keys.push_back(text<&Section::grants, &GrantsConfig::live>(
                       "live", "Cameras that may be watched live, over multicast too.", TextKind::cameras)
                       .on(ReloadEffect::atOnce));
    keys.push_back(text<&Section::grants, &GrantsConfig::playback>(
                       "playback", "Cameras whose recordings may be watched.", TextKind::cameras)
                       .on(ReloadEffect::atOnce));
    keys.push_back(text<&Section::grants, &GrantsConfig::talk>(
                       "talk", "Cameras through which audio may be sent to the device.", TextKind::cameras)
                       .on(ReloadEffect::atOnce));
    keys.push_back(
        text<&Section::grants, &GrantsConfig::admin>(
            "admin", "Cameras that may be administered; nothing over RTSP needs it.", TextKind::cameras)
            .on(ReloadEffect::atOnce));
}

constexpr int maxTime = 86400;
constexpr int maxNumber = 999999;

}  // namespace

template <>
const std::vector<ConfigKey<ServerConfig>>& configKeys<ServerConfig>()
{
    static const std::vector<ConfigKey<Server>> keys{
        text<&Server::listen>("listen",
                              "Address to listen on; \"0.0.0.0\" or \"::\" for every address of the machine.",
                              TextKind::address),
        number<&Server::port>("port", "TCP port of RTSP; 0 takes any free one.", 0, 65535),
        number<&Server::rtpPort>(
            "rtp-port", "UDP port of all RTP, even; RTCP has the next; 0 takes any free pair.", 0, 65534, 2),
        number<&Server::threads>(
            "threads", "Threads that serve connections; 0 takes one for each core, at most 4.", 0, 64),
        choice<&Server::logLevel>("log-level", "Lowest level that is logged.",
                                  {"trace", "debug", "info", "warning", "error", "off"})
            .on(ReloadEffect::atOnce),
        choice<&Server::logFormat>(
            "log-format", "How lines of the log are written: \"text\", or \"json\", one object a line.",
            {"text", "json"}),
        text<&Server::realm>("realm", "Realm of the authentication, as players show it.", TextKind::quotable),
        text<&Server::usersFile>("users-file",
                                 "File with further [[user]] and [[group]] sections, to be readable for the "
                                 "server alone; a relative path starts at this file.",
                                 TextKind::plain)
            .on(ReloadEffect::newcomers),
        flag<&Server::digestWithoutQop>(
            "digest-without-qop",
            "Take Digest answers without qop, as some clients send them. Each can be replayed from its "
            "client's address for a minute; false refuses them."),
        flag<&Server::sandbox>(
            "sandbox",
            "Whether the running server denies itself what it does not need: starting programs, system calls "
            "of "
            "administrators and debuggers, and files beside the system's and those of this configuration."),
        flag<&Server::segmentationOffload>(
            "segmentation-offload",
            "Send an access unit's UDP packets in one system call (UDP GSO) where the system can."),
        choice<&Server::start>(
            "start",
            "How viewers of live streams start: \"burst\" sends everything since the last key frame at once, "
            "\"paced\" the same at a multiple of real time, \"key-frame\" starts with the next key frame.",
            {"burst", "paced", "key-frame"})
            .on(ReloadEffect::newcomers),
        number<&Server::startRate>("start-rate", "Maximum rate of \"paced\", as a multiple of real time.", 2,
                                   100)
            .on(ReloadEffect::newcomers),
        flag<&Server::gopCache>("gop-cache",
                                "Whether viewers may start from a key frame of the past; false is the same "
                                "as start = \"key-frame\".")
            .on(ReloadEffect::newcomers),
        choice<&Server::liveController>(
            "live-controller",
            "Which of the library's two live controllers serves orv/live: \"first\" or \"second\". Viewers "
            "see no difference but for the size of UDP packets. With \"both\" it is the first, and the "
            "second serves second/orv/live beside it, so that they can be compared.",
            {"first", "second", "both"}),
        number<&Server::mtu>("mtu",
                             "Largest IP packet in bytes that the network path to viewers takes; the second "
                             "live controller fills UDP packets up to 76 bytes less.",
                             576, 9000),
        choice<&Server::security>(
            "security",
            "What media must be protected by, unless a camera says otherwise: \"tls\" is inside a TLS "
            "connection, \"srtp\" is SRTP, \"any-encrypted\" is one of the two, \"none\" is nothing. Other "
            "requests get 403.",
            {"none", "tls", "srtp", "any-encrypted"})
            .on(ReloadEffect::newcomers),
        number<&Server::frozenAfter>(
            "frozen-after",
            "Seconds without a frame after which a camera that ran is frozen: in the "
            "log and for on-camera-frozen of [hooks].",
            1, 10),
        number<&Server::linger>("linger", "Seconds that a source runs on after its last viewer left.", 0,
                                maxTime)
            .on(ReloadEffect::atOnce),
    };
    return keys;
}

template <>
const std::vector<ConfigKey<LimitsConfig>>& configKeys<LimitsConfig>()
{
    static const std::vector<ConfigKey<Limits>> keys{
        number<&Limits::connections>("connections",
                                     "Connections at once. One of eight is kept for addresses that logged in "
                                     "or, without users, set a session up before.",
                                     1, maxNumber)
            .on(ReloadEffect::atOnce),
        number<&Limits::connectionsPerAddress>(
            "connections-per-address",
            "Connections at once from one address; all of an IPv6 network of 64 bits count together.", 1,
            maxNumber)
            .on(ReloadEffect::atOnce),
        number<&Limits::sessions>("sessions", "Sessions at once.", 1, maxNumber).on(ReloadEffect::atOnce),
        number<&Limits::sessionsPerAddress>(
            "sessions-per-address", "Sessions at once from one address, counted as its connections are.", 1,
            maxNumber)
            .on(ReloadEffect::atOnce),
        number<&Limits::sendBuffer>(
            "send-buffer",
            "KiB of media that the system keeps for a viewer over TCP who reads too slowly; it takes up to "
            "twice as much memory. Less makes slow viewers lose frames sooner.",
            32, 4096)
            .on(ReloadEffect::newcomers),
        number<&Limits::talkSenders>(
            "talk-senders", "Sessions that may have talk-back set up at once; others get 453.", 1, maxNumber)
            .formerly("talkers"),
        number<&Limits::headerCount>("header-count", "Header lines in one request.", 8, 1000)
            .on(ReloadEffect::newcomers),
        number<&Limits::headerBytes>(
            "header-bytes", "Bytes of a request's first line and header lines together.", 512, 1048576)
            .on(ReloadEffect::newcomers),
        number<&Limits::bodyBytes>("body-bytes", "Bytes of a request's body.", 0, 16777216)
            .on(ReloadEffect::newcomers),
        number<&Limits::handshakeTimeout>("handshake-timeout",
                                          "Seconds from the connect to the end of the first request, and "
                                          "from the first byte of a later one to its end.",
                                          1, maxTime)
            .on(ReloadEffect::atOnce),
        number<&Limits::setupTimeout>("setup-timeout",
                                      "Seconds that a client has to log in or, without users, to set a "
                                      "session up, while three quarters of the connections are taken.",
                                      1, maxTime)
            .on(ReloadEffect::atOnce),
        number<&Limits::idleTimeout>("idle-timeout",
                                     "Seconds that a connection without a session may be silent.", 1, maxTime)
            .on(ReloadEffect::atOnce),
        number<&Limits::sessionTimeout>(
            "session-timeout",
            "Seconds that a session lives without a sign of life; sent in the Session header. While an "
            "interleaved session plays or pauses, its TCP connection's answers are signs of life.",
            2, maxTime),
        number<&Limits::orphanTimeout>(
            "orphan-timeout", "Seconds that a UDP session outlives its connection without a sign of life.", 1,
            maxTime)
            .on(ReloadEffect::atOnce),
    };
    return keys;
}

template <>
const std::vector<ConfigKey<AuthConfig>>& configKeys<AuthConfig>()
{
    static const std::vector<ConfigKey<AuthConfig>> keys{
        choice<&AuthConfig::basic>(
            "basic",
            "Where Basic authentication is offered and accepted, which sends the password itself: "
            "\"tls-only\" "
            "on TLS connections, \"always\" on others too, \"never\" nowhere. Digest is always accepted.",
            {"never", "tls-only", "always"})
            .on(ReloadEffect::newcomers),
        number<&AuthConfig::freeFailures>("free-failures",
                                          "Wrong passwords of a user from one address, after which the next "
                                          "attempts have to wait: 1, 2, 4 … "
                                          "seconds.",
                                          1, maxNumber),
        number<&AuthConfig::maxDelay>("max-delay", "Seconds that an attempt has to wait at most.", 1, 60),
        number<&AuthConfig::refuseAfter>("refuse-after",
                                         "Wrong passwords of a user from one address, after which its "
                                         "attempts are answered 503 for a while; "
                                         "0: never.",
                                         0, maxNumber),
        number<&AuthConfig::refuseAddressAfter>(
            "refuse-address-after",
            "The same for wrong passwords of all users from one address; attempts have to wait after half of "
            "them. Users who logged in from there are not held up.",
            0, maxNumber),
        number<&AuthConfig::refusalTime>("refusal-time", "Seconds that attempts are refused.", 1, maxTime),
        number<&AuthConfig::failureMemory>(
            "failure-memory", "Seconds after which one wrong password is forgotten.", 1, maxTime),
        flag<&AuthConfig::exemptLoopback>(
            "exempt-loopback",
            "Whether clients on this machine may try passwords without waiting; false where a proxy on this "
            "machine passes others on."),
    };
    return keys;
}

template <>
const std::vector<ConfigKey<TlsConfig>>& configKeys<TlsConfig>()
{
    static const std::vector<ConfigKey<TlsConfig>> keys{
        text<&TlsConfig::listen>("listen", "Address to listen on for TLS; empty is that of RTSP.",
                                 TextKind::anyAddress)
            .on(ReloadEffect::newcomers),
        number<&TlsConfig::port>(
            "port",
            "TCP port of RTSP over TLS (rtsps://); 0 takes any free one. It is open once "
            "there is a certificate.",
            0, 65535)
            .on(ReloadEffect::newcomers),
        text<&TlsConfig::certificate>(
            "certificate",
            "PEM file with the server's certificate and then its intermediate certificates; a relative path "
            "starts at this file. Changed files are read again within seconds; connections stay.",
            TextKind::plain)
            .on(ReloadEffect::newcomers),
        text<&TlsConfig::key>("key",
                              "PEM file with the certificate's private key, not encrypted; empty where the "
                              "certificate's file holds it too.",
                              TextKind::plain)
            .on(ReloadEffect::newcomers),
        flag<&TlsConfig::selfSigned>(
            "self-signed",
            "Make a key and a certificate that is signed with it, once, and print its SHA-256 fingerprint, "
            "for clients that can be made to trust it.")
            .on(ReloadEffect::newcomers),
        text<&TlsConfig::directory>("directory",
                                    "Where the self-signed ones are kept; a relative path starts at this "
                                    "file, the default at the working directory.",
                                    TextKind::path)
            .on(ReloadEffect::newcomers),
        choice<&TlsConfig::minVersion>("min-version", "Oldest version of TLS that is accepted.",
                                       {"1.2", "1.3"})
            .on(ReloadEffect::newcomers),
        text<&TlsConfig::ciphers>("ciphers",
                                  "Ciphers that may be used, as OpenSSL names them, separated by colons; "
                                  "those that start with TLS_ are for TLS 1.3. Empty: those with forward "
                                  "secrecy and authenticated encryption.",
                                  TextKind::plain)
            .on(ReloadEffect::newcomers),
        text<&TlsConfig::clientCa>("client-ca",
                                   "PEM file with CAs; clients must then present a certificate of one of "
                                   "them. Empty: none is asked for.",
                                   TextKind::plain)
            .on(ReloadEffect::newcomers),
        flag<&TlsConfig::certificateUsers>("certificate-users",
                                           "With client-ca: the common name (CN) of a client's certificate "
                                           "is the name of the user that it is "
                                           "logged in as; such a [[user]] needs no password.")
            .on(ReloadEffect::newcomers),
        number<&TlsConfig::handshakes>("handshakes",
                                       "TLS handshakes under way at once; one address may have half of them.",
                                       1, maxNumber)
            .on(ReloadEffect::newcomers),
        flag<&TlsConfig::kernelTls>("kernel-tls",
                                    "Have the kernel encrypt where it can (modprobe tls); the log says so at "
                                    "the start.")
            .on(ReloadEffect::newcomers),
    };
    return keys;
}

template <>
const std::vector<ConfigKey<TunnelConfig>>& configKeys<TunnelConfig>()
{
    static const std::vector<ConfigKey<TunnelConfig>> keys{
        flag<&TunnelConfig::http>("http",
                                  "Serve RTSP and its media through HTTP, and with TLS through HTTPS: a GET "
                                  "and a POST with the same x-sessioncookie.")
            .on(ReloadEffect::newcomers),
        flag<&TunnelConfig::webSocket>("websocket",
                                       "Serve RTSP and its media over WebSocket, sub-protocol "
                                       "rtsp.onvif.org.")
            .on(ReloadEffect::newcomers),
        choice<&TunnelConfig::origins>(
            "origins",
            "Whose web pages may use WebSocket: \"any\"; \"same\", those of the host that serves it; "
            "\"auto\" is \"any\" where users must log in and \"same\" where everybody may watch.",
            {"auto", "same", "any"})
            .on(ReloadEffect::newcomers),
    };
    return keys;
}

template <>
const std::vector<ConfigKey<HttpConfig>>& configKeys<HttpConfig>()
{
    static const std::vector<ConfigKey<HttpConfig>> keys{
        text<&HttpConfig::listen>(
            "listen",
            "Address and port of the HTTP service, such as \"0.0.0.0:8080\" or "
            "\"[::1]:8080\"; port 0 takes any free one, an empty text switches HTTP off.",
            TextKind::endpoint),
        flag<&HttpConfig::tls>("tls", "Serve HTTPS alone, with the certificate and the limits of [tls]."),
        text<&HttpConfig::names>(
            "names",
            "Names of this server that requests may hold in their Host header, separated "
            "by commas, beside addresses, localhost and the machine's own name; \"*\" "
            "accepts every name. It keeps web pages of others from reaching the service "
            "through a name of their own.",
            TextKind::names),
        number<&HttpConfig::connections>("connections", "Connections at once.", 1, maxNumber),
        number<&HttpConfig::connectionsPerAddress>(
            "connections-per-address",
            "Connections at once from one address; all of an IPv6 network of 64 bits count together.", 1,
            maxNumber),
        number<&HttpConfig::headerBytes>(
            "header-bytes", "Bytes of a request's first line and header lines together.", 1024, 1048576),
        number<&HttpConfig::bodyBytes>("body-bytes", "Bytes of a request's body.", 0, 16777216),
        number<&HttpConfig::requestTimeout>(
            "request-timeout",
            "Seconds from a request's first byte to its last, and for which a client may take nothing of an "
            "answer.",
            1, maxTime),
        number<&HttpConfig::idleTimeout>(
            "idle-timeout", "Seconds that a connection may be open without a request.", 1, maxTime),
        number<&HttpConfig::rate>(
            "rate", "Requests a second from one address; others get 429. Twice as many may come at once.", 1,
            maxNumber),
        number<&HttpConfig::background>(
            "background", "Requests at once that take long, such as exports and snapshots; others get 503.",
            1, 1024),
    };
    return keys;
}

template <>
const std::vector<ConfigKey<SrtpConfig>>& configKeys<SrtpConfig>()
{
    static const std::vector<ConfigKey<SrtpConfig>> keys{
        choice<&SrtpConfig::suite>("suite",
                                   "How media that is sent is encrypted and authenticated, as SDP names it. "
                                   "Clients name what they use themselves.",
                                   {"AES_CM_128_HMAC_SHA1_80", "AES_CM_128_HMAC_SHA1_32", "AEAD_AES_128_GCM"})
            .on(ReloadEffect::newcomers),
        choice<&SrtpConfig::keys>("keys",
                                  "On which RTSP connections keys are sent: \"tls-only\", or \"always\", "
                                  "which shows them to whoever reads a connection without TLS.",
                                  {"tls-only", "always"})
            .on(ReloadEffect::newcomers),
    };
    return keys;
}

template <>
const std::vector<ConfigKey<HooksConfig>>& configKeys<HooksConfig>()
{
    using Hooks = HooksConfig;
    static const std::vector<ConfigKey<Hooks>> keys{
        text<&Hooks::cameraUp>("on-camera-up",
                               "A camera's stream runs: its frames come, again or for the first time.",
                               TextKind::hook),
        text<&Hooks::cameraDown>(
            "on-camera-down", "A camera cannot be read; not repeated with each further try.", TextKind::hook),
        text<&Hooks::cameraFrozen>("on-camera-frozen", "A camera that ran sends no frames.", TextKind::hook),
        text<&Hooks::recordingSegment>("on-recording-segment",
                                       "A file of a recording is complete: its path, start and end.",
                                       TextKind::hook),
        text<&Hooks::sessionStart>("on-session-start", "A client starts to play or to talk.", TextKind::hook),
        text<&Hooks::sessionEnd>("on-session-end", "The session of such a client ended.", TextKind::hook),
        text<&Hooks::talkStart>("on-talk-start", "A client's audio is played from now on.", TextKind::hook),
        text<&Hooks::talkEnd>("on-talk-end", "It is not played any more.", TextKind::hook),
        number<&Hooks::timeout>("timeout", "Seconds that a hook may take; then its command is killed.", 1,
                                3600),
        number<&Hooks::parallel>(
            "max-parallel", "Hooks that run at once; others wait, and beyond 256 of a kind are left out.", 1,
            64),
    };
    return keys;
}

template <>
const std::vector<ConfigKey<TalkBackConfig>>& configKeys<TalkBackConfig>()
{
    static const std::vector<ConfigKey<TalkBack>> keys{
        choice<&TalkBack::policy>(
            "policy",
            "Which client is played when several talk at once: \"first\" is the first one to talk, until "
            "nothing comes from it for half a second; \"newest\" the last one to start; \"mix\" all of them; "
            "\"refuse\" lets one client at a time set talk-back up, and others get 453.",
            {"first", "newest", "mix", "refuse"}),
        choice<&TalkBack::output>("output",
                                  "Where clients are played: \"alsa\" is a sound card, \"pulse\" a sink of "
                                  "PulseAudio or PipeWire, \"wav\" a WAV file, \"null\" nowhere.",
                                  {"alsa", "pulse", "wav", "null"}),
        text<&TalkBack::device>(
            "device",
            "The ALSA device (\"plughw:0\") or the sink, empty for the default one; or the path of the WAV "
            "file (relative to this file), which is continued where it is there.",
            TextKind::plain),
        number<&TalkBack::sampleRate>("sample-rate", "Samples a second that the output plays, in Hz.", 8000,
                                      96000),
        number<&TalkBack::channels>("channels", "Channels of the output.", 1, 2),
        number<&TalkBack::encoderType>("encoder-type",
                                       "Encoder type number passed to the output; these outputs only log it.",
                                       0, maxNumber),
    };
    return keys;
}

template <>
const std::vector<ConfigKey<MulticastConfig>>& configKeys<MulticastConfig>()
{
    static const std::vector<ConfigKey<Multicast>> keys{
        text<&Multicast::pool>(
            "pool",
            "Multicast addresses for orv/multicast; each stream takes one of them while somebody watches it.",
            TextKind::groupRange),
        number<&Multicast::port>("port",
                                 "First UDP port of the pool's first group, even; each stream has four: RTP "
                                 "and RTCP of frames, then of audio.",
                                 1024, 65532, 2),
        number<&Multicast::ttl>("ttl", "Time to live of the packets: 1 keeps them in the local network.", 0,
                                255),
        text<&Multicast::interface>(
            "interface",
            "Name or address of the interface that the packets leave through; empty is the interface of the "
            "listen address, or with \"0.0.0.0\" or \"::\" the one that the system's routes choose.",
            TextKind::plain),
    };
    return keys;
}

template <>
const std::vector<ConfigKey<RecordingConfig>>& configKeys<RecordingConfig>()
{
    static const std::vector<ConfigKey<Recording>> keys{
        text<&Recording::directory>("directory",
                                    "Where recordings are kept; a relative path starts at this file, the "
                                    "default at the working directory.",
                                    TextKind::path),
        number<&Recording::segment>("segment",
                                    "Seconds of media in one file; each starts with a key frame, so it may "
                                    "be longer by the time between two.",
                                    1, 3600)
            .on(ReloadEffect::atOnce),
        size<&Recording::maxSize>("max-size",
                                  "Size of all recordings together, such as \"50GiB\"; the oldest are "
                                  "removed beyond. 0 for no limit.",
                                  mebibyte)
            .on(ReloadEffect::atOnce),
        time<&Recording::maxAge>("max-age",
                                 "Age at which recordings are removed, such as \"7d\"; 0 for no limit.", hour)
            .on(ReloadEffect::atOnce),
        text<&Recording::minFree>(
            "min-free",
            "How much of the disk is to stay free: a size (\"2GiB\"), a share (\"5%\"), or \"auto\", which "
            "is "
            "5 % or 1 GiB, whichever is less. The oldest recordings are removed for it. \"0\" uses the whole "
            "disk.",
            TextKind::freeSpace)
            .on(ReloadEffect::atOnce),
    };
    return keys;
}

template <>
const std::vector<ConfigKey<GroupConfig>>& configKeys<GroupConfig>()
{
    static const std::vector<ConfigKey<Group>> keys = []
    {
        std::vector<ConfigKey<Group>> all{
            text<&Group::name>("name", "Name, without colon, comma or quotes.", TextKind::userName)
                .on(ReloadEffect::identity)};
        addGrants(all);
        return all;
    }();
    return keys;
}

template <>
const std::vector<ConfigKey<UserConfig>>& configKeys<UserConfig>()
{
    static const std::vector<ConfigKey<User>> keys = []
    {
        std::vector<ConfigKey<User>> all{
            text<&User::name>("name",
                              "Name, without colon or quotes; \"anonymous\", without a password, is whoever "
                              "does not log in.",
                              TextKind::userName)
                .on(ReloadEffect::identity),
            text<&User::password>("password",
                                  "Password in plain text: keep the file readable for the server alone.",
                                  TextKind::password)
                .on(ReloadEffect::newcomers),
            text<&User::passwordHash>("password-hash",
                                      "Instead of the password: what `ovrtspd --hash-password NAME` prints.",
                                      TextKind::passwordHash)
                .on(ReloadEffect::newcomers),
            text<&User::groups>(
                "groups",
                "Names of the groups that the user is in, separated by commas; it may do what "
                "each of them may.",
                TextKind::names)
                .on(ReloadEffect::atOnce)};
        addGrants(all);
        return all;
    }();
    return keys;
}

}  // namespace refhost

#include "refhost/config/ConfigKeys.h"

#include <algorithm>
#include <array>

namespace refhost
{
namespace
{

// In the order of SourceConfig::Kind.
constexpr std::array<std::string_view, 5> sourceKinds{"synthetic", "file", "v4l2", "rtsp", "launch"};

std::string getSource(const StreamConfig& stream)
{
    return std::string(sourceKinds.at(static_cast<std::size_t>(stream.source.kind)));
}

void setSource(StreamConfig& stream, const std::string& choice)
{
    const auto* const found = std::find(sourceKinds.begin(), sourceKinds.end(), choice);
    stream.source.kind = static_cast<SourceConfig::Kind>(found - sourceKinds.begin());
}

template <typename Section>
ConfigKey<Section> number(std::string_view name, std::string_view meaning, int& (*value)(Section&), int min,
                          int max, int step = 1)
{
    return {name, meaning, NumberSetting<Section>{value, min, max, step}};
}

template <typename Section>
ConfigKey<Section> flag(std::string_view name, std::string_view meaning, bool& (*value)(Section&))
{
    return {name, meaning, FlagSetting<Section>{value}};
}

template <typename Section>
ConfigKey<Section> text(std::string_view name, std::string_view meaning, std::string& (*value)(Section&),
                        TextKind kind)
{
    return {name, meaning, TextSetting<Section>{value, kind}};
}

template <typename Section>
ConfigKey<Section> choice(std::string_view name, std::string_view meaning, std::string (*get)(const Section&),
                          void (*set)(Section&, const std::string&), std::vector<std::string_view> choices)
{
    return {name, meaning, ChoiceSetting<Section>{get, set, std::move(choices)}};
}

using Server = ServerConfig;
using Limits = LimitsConfig;
using TalkBack = TalkBackConfig;
using Multicast = MulticastConfig;
using Recording = RecordingConfig;
using User = UserConfig;
using Camera = CameraConfig;
using Stream = StreamConfig;

constexpr int maxTime = 86400;
constexpr int maxNumber = 999999;
constexpr int maxSize = 1073741824;  // MiB

}  // namespace

const std::vector<ConfigKey<ServerConfig>>& serverKeys()
{
    static const std::vector<ConfigKey<Server>> keys{
        text<Server>(
            "listen", "Address to listen on; \"0.0.0.0\" or \"::\" for every address of the machine.",
            [](Server& s) -> std::string& { return s.listen; }, TextKind::address),
        number<Server>(
            "port", "TCP port of RTSP; 0 takes any free one.", [](Server& s) -> int& { return s.port; }, 0,
            65535),
        number<Server>(
            "rtp-port", "UDP port of all RTP, even; RTCP has the next; 0 takes any free pair.",
            [](Server& s) -> int& { return s.rtpPort; }, 0, 65534, 2),
        number<Server>(
            "threads", "Threads that serve connections; 0 takes one for each core, at most 4.",
            [](Server& s) -> int& { return s.threads; }, 0, 64),
        choice<Server>(
            "log-level", "The least level that the log shows.", [](const Server& s) { return s.logLevel; },
            [](Server& s, const std::string& level) { s.logLevel = level; },
            {"trace", "debug", "info", "warning", "error", "off"}),
        text<Server>(
            "realm", "Realm of the authentication, as players show it.",
            [](Server& s) -> std::string& { return s.realm; }, TextKind::quotable),
        flag<Server>(
            "digest-without-qop",
            "Take Digest answers without qop, as some clients send them. Each can be replayed from its "
            "client's address for a minute; false refuses them.",
            [](Server& s) -> bool& { return s.digestWithoutQop; }),
        flag<Server>("segmentation-offload",
                     "Send an access unit's UDP packets in one system call (UDP GSO) where the system can.",
                     [](Server& s) -> bool& { return s.segmentationOffload; }),
        choice<Server>(
            "start",
            "How viewers of live streams start: \"burst\" sends everything since the last key frame at once, "
            "\"paced\" the same at a multiple of real time, \"key-frame\" starts with the next key frame.",
            [](const Server& s) { return s.start; },
            [](Server& s, const std::string& start) { s.start = start; }, {"burst", "paced", "key-frame"}),
        number<Server>(
            "start-rate", "How many times as fast as real time \"paced\" sends at most.",
            [](Server& s) -> int& { return s.startRate; }, 2, 100),
        flag<Server>("gop-cache",
                     "Whether viewers may start from a key frame of the past; false is the same as start = "
                     "\"key-frame\".",
                     [](Server& s) -> bool& { return s.gopCache; }),
        choice<Server>(
            "live-controller",
            "Which of the library's two live controllers serves orv/live: \"first\" or \"second\". Viewers "
            "see no difference but for the size of UDP packets. With \"both\" it is the first, and the "
            "second "
            "serves second/orv/live beside it, so that they can be compared.",
            [](const Server& s) { return s.liveController; },
            [](Server& s, const std::string& controller) { s.liveController = controller; },
            {"first", "second", "both"}),
        number<Server>(
            "mtu",
            "Largest IP packet in bytes that the network path to viewers takes; the second live controller "
            "fills UDP packets up to 76 bytes less.",
            [](Server& s) -> int& { return s.mtu; }, 576, 9000),
        number<Server>(
            "linger", "Seconds that a source runs on after its last viewer left.",
            [](Server& s) -> int& { return s.linger; }, 0, maxTime),
    };
    return keys;
}

const std::vector<ConfigKey<LimitsConfig>>& limitsKeys()
{
    static const std::vector<ConfigKey<Limits>> keys{
        number<Limits>(
            "connections",
            "Connections at once. One of eight is kept for addresses that logged in or, without users, set a "
            "session up before.",
            [](Limits& l) -> int& { return l.connections; }, 1, maxNumber),
        number<Limits>(
            "connections-per-address",
            "Connections at once from one address; all of an IPv6 network of 64 bits count together.",
            [](Limits& l) -> int& { return l.connectionsPerAddress; }, 1, maxNumber),
        number<Limits>(
            "sessions", "Sessions at once.", [](Limits& l) -> int& { return l.sessions; }, 1, maxNumber),
        number<Limits>(
            "sessions-per-address", "Sessions at once from one address, counted in the same way.",
            [](Limits& l) -> int& { return l.sessionsPerAddress; }, 1, maxNumber),
        number<Limits>(
            "send-buffer",
            "KiB of media that the system keeps for a viewer over TCP who reads too slowly; it takes up to "
            "twice "
            "as much memory. Less makes slow viewers lose frames sooner.",
            [](Limits& l) -> int& { return l.sendBuffer; }, 32, 4096),
        number<Limits>(
            "talkers", "Sessions that may have talk-back set up at once; others get 453.",
            [](Limits& l) -> int& { return l.senders; }, 1, maxNumber),
        number<Limits>(
            "header-count", "Header lines in one request.", [](Limits& l) -> int& { return l.headerCount; },
            8, 1000),
        number<Limits>(
            "header-bytes", "Bytes of a request's first line and header lines together.",
            [](Limits& l) -> int& { return l.headerBytes; }, 512, 1048576),
        number<Limits>(
            "body-bytes", "Bytes of a request's body.", [](Limits& l) -> int& { return l.bodyBytes; }, 0,
            16777216),
        number<Limits>(
            "handshake-timeout",
            "Seconds from the connect to the end of the first request, and from the first byte of a later "
            "one to its end.",
            [](Limits& l) -> int& { return l.handshakeTimeout; }, 1, maxTime),
        number<Limits>(
            "setup-timeout",
            "Seconds that a client has to log in or, without users, to set a session up, while three "
            "quarters "
            "of the connections are taken.",
            [](Limits& l) -> int& { return l.setupTimeout; }, 1, maxTime),
        number<Limits>(
            "idle-timeout", "Seconds that a connection without a session may be silent.",
            [](Limits& l) -> int& { return l.idleTimeout; }, 1, maxTime),
        number<Limits>(
            "session-timeout",
            "Seconds that a session lives without a sign of life; told in the Session header. While an "
            "interleaved session plays or pauses, its TCP connection's answers are signs of life.",
            [](Limits& l) -> int& { return l.sessionTimeout; }, 2, maxTime),
        number<Limits>(
            "orphan-timeout", "Seconds that a UDP session outlives its connection without a sign of life.",
            [](Limits& l) -> int& { return l.orphanTimeout; }, 1, maxTime),
    };
    return keys;
}

const std::vector<ConfigKey<TalkBackConfig>>& talkBackKeys()
{
    static const std::vector<ConfigKey<TalkBack>> keys{
        choice<TalkBack>(
            "policy",
            "Who is heard when several clients talk at once: \"first\" is who talks first, until nothing "
            "came "
            "of it for half a second; \"newest\" who started to talk last; \"mix\" everybody; with "
            "\"refuse\" "
            "one client at a time can set talk-back up at all, and others get 453.",
            [](const TalkBack& t) { return t.policy; },
            [](TalkBack& t, const std::string& policy) { t.policy = policy; },
            {"first", "newest", "mix", "refuse"}),
        choice<TalkBack>(
            "output",
            "Where clients are heard: \"alsa\" is a sound card, \"pulse\" a sink of PulseAudio or PipeWire, "
            "\"wav\" a WAV file, \"null\" nowhere.",
            [](const TalkBack& t) { return t.output; },
            [](TalkBack& t, const std::string& output) { t.output = output; },
            {"alsa", "pulse", "wav", "null"}),
        text<TalkBack>(
            "device",
            "The ALSA device (\"plughw:0\") or the sink, empty for the default one; or the path of the WAV "
            "file "
            "(relative to this file), which is continued where it is there.",
            [](TalkBack& t) -> std::string& { return t.device; }, TextKind::plain),
        number<TalkBack>(
            "sample-rate", "Samples a second that the output plays, in Hz.",
            [](TalkBack& t) -> int& { return t.sampleRate; }, 8000, 96000),
        number<TalkBack>(
            "channels", "Channels of the output.", [](TalkBack& t) -> int& { return t.channels; }, 1, 2),
        number<TalkBack>(
            "encoder-type", "Encoder type number that the output is told; these outputs only log it.",
            [](TalkBack& t) -> int& { return t.encoderType; }, 0, maxNumber),
    };
    return keys;
}

const std::vector<ConfigKey<MulticastConfig>>& multicastKeys()
{
    static const std::vector<ConfigKey<Multicast>> keys{
        text<Multicast>(
            "pool",
            "Multicast addresses for orv/multicast; each stream takes one of them while somebody watches it.",
            [](Multicast& m) -> std::string& { return m.pool; }, TextKind::groupRange),
        number<Multicast>(
            "port",
            "First UDP port of the pool's first group, even; each stream has four: RTP and RTCP of frames, "
            "then of audio.",
            [](Multicast& m) -> int& { return m.port; }, 1024, 65532, 2),
        number<Multicast>(
            "ttl", "Time to live of the packets: 1 keeps them in the local network.",
            [](Multicast& m) -> int& { return m.ttl; }, 0, 255),
        text<Multicast>(
            "interface",
            "Name or address of the interface that the packets leave through; empty is the interface of "
            "the listen address, or with \"0.0.0.0\" or \"::\" the one that the system's routes choose.",
            [](Multicast& m) -> std::string& { return m.interface; }, TextKind::plain),
    };
    return keys;
}

const std::vector<ConfigKey<RecordingConfig>>& recordingKeys()
{
    static const std::vector<ConfigKey<Recording>> keys{
        text<Recording>(
            "directory",
            "Where recordings are kept; a relative path starts at this file, the default at the working "
            "directory.",
            [](Recording& r) -> std::string& { return r.directory; }, TextKind::path),
        number<Recording>(
            "segment",
            "Seconds of media in one file; each starts with a key frame, so it may be longer by the time "
            "between two.",
            [](Recording& r) -> int& { return r.segment; }, 1, 3600),
        number<Recording>(
            "max-size",
            "MiB that all recordings may take together, the oldest are removed beyond; 0 for no limit.",
            [](Recording& r) -> int& { return r.maxSize; }, 0, maxSize),
        number<Recording>(
            "max-age", "Hours after which recordings are removed; 0 for no limit.",
            [](Recording& r) -> int& { return r.maxAge; }, 0, maxNumber),
    };
    return keys;
}

const std::vector<ConfigKey<UserConfig>>& userKeys()
{
    static const std::vector<ConfigKey<User>> keys{
        text<User>(
            "name", "Name, without colon or quotes.", [](User& u) -> std::string& { return u.name; },
            TextKind::userName),
        text<User>(
            "password", "Password in plain text: keep the file readable for the server alone.",
            [](User& u) -> std::string& { return u.password; }, TextKind::password),
    };
    return keys;
}

const std::vector<ConfigKey<CameraConfig>>& cameraKeys()
{
    static const std::vector<ConfigKey<Camera>> keys{
        number<Camera>(
            "id", "Number of the camera in URLs: rtsp://…/orv/live/CAMERA/STREAM.",
            [](Camera& c) -> int& { return c.id; }, 0, maxNumber),
        text<Camera>(
            "name", "What people call the camera.", [](Camera& c) -> std::string& { return c.name; },
            TextKind::plain),
        choice<Camera>(
            "talk-back",
            "Codec in which clients may send audio to the device through this camera's streams; \"none\" "
            "offers no talk-back.",
            [](const Camera& c) { return std::string(nameOf(c.talkBack)); },
            [](Camera& c, const std::string& name) { c.talkBack = codecNamed(name); },
            codecChoices(MediaKind::audio, true)),
    };
    return keys;
}

const std::vector<ConfigKey<StreamConfig>>& streamKeys()
{
    static const std::vector<ConfigKey<Stream>> keys{
        number<Stream>(
            "id", "Number of the stream in URLs; unique within its camera.",
            [](Stream& s) -> int& { return s.id; }, 0, maxNumber),
        choice<Stream>(
            "source",
            "Where video and audio come from: \"synthetic\" is a test pattern with the time and a "
            "tone, \"file\" a media file played in a loop, \"v4l2\" a video device, \"rtsp\" another "
            "camera, \"launch\" a GStreamer launch line.",
            getSource, setSource, {sourceKinds.begin(), sourceKinds.end()}),
        text<Stream>(
            "location",
            "What the source opens: the file's path (relative to this file), the device (\"/dev/video0\"), "
            "the "
            "rtsp:// URL, or the launch line, whose elements named \"video\" and \"audio\" are sent. Not for "
            "\"synthetic\".",
            [](Stream& s) -> std::string& { return s.source.location; }, TextKind::location),
        choice<Stream>(
            "video", "Codec of the video.", [](const Stream& s) { return std::string(nameOf(s.videoCodec)); },
            [](Stream& s, const std::string& name) { s.videoCodec = codecNamed(name); },
            codecChoices(MediaKind::video)),
        number<Stream>(
            "width", "Width of the video in pixels, even, where the server encodes.",
            [](Stream& s) -> int& { return s.width; }, 16, 8192, 2),
        number<Stream>(
            "height", "Height of the video in pixels, even, where the server encodes.",
            [](Stream& s) -> int& { return s.height; }, 16, 8192, 2),
        number<Stream>(
            "frame-rate", "Frames a second, where the server encodes.",
            [](Stream& s) -> int& { return s.frameRate; }, 1, 120),
        number<Stream>(
            "bit-rate", "Rate of the encoded video in kbit/s, where the server encodes.",
            [](Stream& s) -> int& { return s.bitRate; }, 16, 200000),
        number<Stream>(
            "gop", "Frames from one key frame to the next, where the server encodes.",
            [](Stream& s) -> int& { return s.gop; }, 1, 1000),
        choice<Stream>(
            "audio", "Codec of the audio.", [](const Stream& s) { return std::string(nameOf(s.audioCodec)); },
            [](Stream& s, const std::string& name) { s.audioCodec = codecNamed(name); },
            codecChoices(MediaKind::audio)),
        text<Stream>(
            "multicast",
            "Multicast group that is this stream's alone, as \"239.1.2.3:5004\" with an even port; empty "
            "takes one of the pool.",
            [](Stream& s) -> std::string& { return s.multicast; }, TextKind::group),
        choice<Stream>(
            "start", "How viewers of this stream start, where not as the key at the top says.",
            [](const Stream& s) { return s.start; },
            [](Stream& s, const std::string& start) { s.start = start; },
            {"default", "burst", "paced", "key-frame"}),
        flag<Stream>("record", "Record the stream; its source runs all the time then.",
                     [](Stream& s) -> bool& { return s.record; }),
    };
    return keys;
}

}  // namespace refhost

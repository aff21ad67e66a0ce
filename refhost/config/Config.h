#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/media/Codec.h"
#include "refhost/media/PacketSize.h"

namespace refhost
{

/// Where a stream's video and audio come from.
struct SourceConfig
{
    enum class Kind
    {
        synthetic,  ///< moving test pattern with the time drawn in, and a tone
        file,       ///< `location`: path of a media file, played in a loop
        v4l2,       ///< `location`: device node such as /dev/video0
        rtsp,       ///< `location`: rtsp:// URL of a camera; may hold credentials, masked in logs
        rtspGst,    ///< the same, read by GStreamer
        launch      ///< `location`: GStreamer launch line whose elements named "video" and "audio" are sent
    };

    Kind kind = Kind::synthetic;
    std::string location;
    std::string transport = "tcp";  ///< that `rtsp` requests first: "tcp" or "udp"
    bool tlsVerify = true;          ///< of rtsps://: only a certificate of a known CA with the host's name
    std::string tlsFingerprint{};   ///< the SHA-256 of the only certificate that is trusted; empty: none

    /// Whether `location` is the URL of another camera.
    bool isCamera() const
    {
        return kind == Kind::rtsp || kind == Kind::rtspGst;
    }

    bool operator==(const SourceConfig& other) const;
};

/// When a stream is recorded.
enum class RecordMode
{
    never,
    events,  ///< with the time before and after each event that is posted to the HTTP service
    always
};

/// The word of the configuration file.
std::string_view nameOf(RecordMode mode);

/// One stream of a camera. Sizes and rates apply where the host encodes; media sent without transcoding keep
/// theirs.
struct StreamConfig
{
    int id = 0;
    SourceConfig source;
    int width = 1280;                               ///< pixels
    int height = 720;                               ///< pixels
    int frameRate = 25;                             ///< frames per second
    int bitRate = 2000;                             ///< kbit/s
    int gop = 25;                                   ///< frames from key frame to key frame
    std::optional<Codec> videoCodec = Codec::h264;  ///< nothing: no video
    std::optional<Codec> audioCodec = Codec::pcmu;  ///< nothing: no audio
    std::string multicast;  ///< fixed multicast group as "239.1.2.3:5004"; empty: one of the pool
    RecordMode record = RecordMode::never;
    int preRoll = 5;    ///< seconds before an event
    int postRoll = 10;  ///< seconds after an event
    std::string start =
        "default";  ///< how viewers start: "burst", "paced", "key-frame", or "default": the server's setting

    /// The configured codecs of video and audio.
    std::vector<Codec> codecs() const;

    /// Whether it is recorded at all, be it on events.
    bool isRecorded() const
    {
        return record != RecordMode::never;
    }

    bool operator==(const StreamConfig& other) const;
};

struct CameraConfig
{
    int id = 1;
    std::string name;
    std::vector<StreamConfig> streams;
    std::optional<Codec> talkBack{};  ///< codec of talk-back; nothing: no talk-back
    std::int64_t maxSize = 0;         ///< bytes of its recordings; 0: no limit of its own
    std::string clock = "camera";     ///< that dates media read over RTSP: "camera" or "server"
    std::string security =
        "default";  ///< what its media must be protected by: as the server's, or "default": the server's
    std::string away = "wait";  ///< what viewers get while it is frozen or cannot be read: "wait" or "end"

    bool operator==(const CameraConfig& other) const;

    /// The name of one of its streams in the log. \see StreamName
    std::string streamName(int streamId) const;
};

/// What a user or group may do with which cameras, each as CameraSet reads it. Empty: not said.
struct GrantsConfig
{
    std::string live;
    std::string playback;
    std::string talk;
    std::string admin;

    /// Whether nothing is said.
    bool empty() const;
};

struct GroupConfig
{
    std::string name;
    GrantsConfig grants{};
    bool inUsersFile = false;  ///< no key: where it is read from

    bool operator==(const GroupConfig& other) const;
};

struct UserConfig
{
    /// The user that clients are which did not log in; it has no password.
    static constexpr std::string_view anonymous = "anonymous";

    std::string name;
    std::string password;
    std::string groups{};        ///< names, separated by commas
    GrantsConfig grants{};       ///< beside those of the groups
    std::string passwordHash{};  ///< instead of the password. \see PasswordHash
    bool inUsersFile = false;    ///< no key: where it is read from

    /// The names in `groups`.
    std::vector<std::string> groupNames() const;
    /// Whether it may do everything, because it has neither grants nor groups; never the anonymous one.
    bool unlimited() const;
    bool isAnonymous() const;

    bool operator==(const UserConfig& other) const;
};

/// How audio that clients send is played.
struct TalkBackConfig
{
    std::string policy = "first";  ///< who has the floor: "first", "newest", "mix" or "refuse"
    std::string output = "alsa";   ///< where audio is played: "alsa", "pulse", "wav" or "null"
    std::string device;            ///< of that output: device, sink or path; empty for the default one
    int sampleRate = 48000;        ///< of the output, Hz
    int channels = 1;              ///< of the output
    int encoderType = 103;         ///< encoder type number passed to the output

    bool operator==(const TalkBackConfig& other) const;
};

/// What is run when something happens: commands for /bin/sh or http(s) URLs; empty: nothing.
struct HooksConfig
{
    std::string cameraUp{};
    std::string cameraDown{};
    std::string cameraFrozen{};
    std::string recordingSegment{};
    std::string sessionStart{};
    std::string sessionEnd{};
    std::string talkStart{};
    std::string talkEnd{};
    int timeout = 10;  ///< seconds
    int parallel = 4;  ///< that run at once

    bool operator==(const HooksConfig& other) const;
};

/// Multicast groups of streams.
struct MulticastConfig
{
    std::string pool = "239.255.42.0/24";  ///< range of IPv4 multicast addresses
    int port = 5004;                       ///< even; first port of the first group
    int ttl = 1;                           ///< of packets: max number of routers passed, plus one
    std::string interface;                 ///< name or address; empty: the listen address's interface

    bool operator==(const MulticastConfig& other) const;
};

/// Who may log in how.
struct AuthConfig
{
    std::string basic = "tls-only";  ///< where Basic is offered and accepted: "never", "tls-only" or "always"
    int freeFailures = 4;            ///< of a user from one address, before attempts have to wait
    int maxDelay = 8;                ///< seconds that an attempt has to wait at most
    int refuseAfter = 10;            ///< failures of a user from one address; 0: never
    int refuseAddressAfter = 50;     ///< failures of all users from one address; 0: never
    int refusalTime = 300;           ///< seconds
    int failureMemory = 60;          ///< seconds after which one failure is forgotten
    bool exemptLoopback = true;      ///< none of this for clients on this machine

    bool operator==(const AuthConfig& other) const;
};

/// Media encrypted over UDP.
struct SrtpConfig
{
    std::string suite = "AES_CM_128_HMAC_SHA1_80";  ///< of what the device sends, as in SDP
    std::string keys = "always";  ///< on which connections keys are sent: "tls-only" or "always"

    bool operator==(const SrtpConfig& other) const;
};

/// RTSP over TLS.
struct TlsConfig
{
    std::string listen;       ///< numeric address; empty: that of RTSP
    int port = 8322;          ///< 0: any free one
    std::string certificate;  ///< path of a PEM file; empty: no TLS unless `selfSigned`
    std::string key;          ///< path of a PEM file; empty: in `certificate`
    bool selfSigned = false;  ///< make both in `directory`
    std::string directory = "./var/tls";
    std::string minVersion = "1.2";  ///< "1.2" or "1.3"
    std::string ciphers;             ///< as OpenSSL writes them; empty: the server's choice
    std::string clientCa;            ///< path of a PEM file; not empty: clients need a certificate of it
    bool certificateUsers = false;   ///< the CN of a client's certificate is a user, who needs no password
    int handshakes = 512;            ///< under way at once
    bool kernelTls = true;           ///< where the system has it

    /// Whether the server listens for TLS.
    bool enabled() const
    {
        return selfSigned || !certificate.empty();
    }

    bool operator==(const TlsConfig& other) const;
};

/// RTSP through HTTP and WebSocket, on the ports of RTSP.
struct TunnelConfig
{
    bool http = true;              ///< a GET and a POST as one connection
    bool webSocket = true;         ///< sub-protocol rtsp.onvif.org
    std::string origins = "auto";  ///< whose pages may use WebSocket: "auto", "same" or "any"

    bool operator==(const TunnelConfig& other) const;
};

/// The HTTP service: state, metrics and control of the server.
struct HttpConfig
{
    std::string listen = "127.0.0.1:8080";  ///< numeric address and port; empty: no HTTP service
    bool tls = false;                       ///< HTTPS alone, with the certificate of TlsConfig
    std::string names;               ///< of hosts that requests may name, separated by commas; "*": any
    int connections = 128;           ///< at once
    int connectionsPerAddress = 64;  ///< at once from one address
    int headerBytes = 16384;         ///< request line and header lines together
    int bodyBytes = 65536;
    int requestTimeout = 10;  ///< seconds for a request to be complete, and for a client to take bytes
    int idleTimeout = 60;     ///< seconds without a request
    int rate = 100;           ///< requests a second from one address
    int background = 16;      ///< requests at once that are worked on beside the event loop

    /// Whether there is an HTTP service.
    bool enabled() const
    {
        return !listen.empty();
    }

    bool operator==(const HttpConfig& other) const;
};

/// Limits of the resources that clients can use.
struct LimitsConfig
{
    int connections = 4096;
    int connectionsPerAddress = 1024;
    int sessions = 4096;
    int sessionsPerAddress = 1024;
    int sendBuffer = 512;     ///< KiB of the system's send buffer for a viewer over TCP
    int talkSenders = 16;     ///< sessions that may have talk-back set up
    int headerCount = 64;     ///< header lines in one request
    int headerBytes = 16384;  ///< request line and header lines together
    int bodyBytes = 16384;
    int handshakeTimeout =
        10;  ///< seconds from connect to the first complete request, and for any request to be complete
    int setupTimeout = 10;    ///< seconds to log in or set up a session while connections are scarce
    int idleTimeout = 120;    ///< seconds without a byte on a connection without a session
    int sessionTimeout = 60;  ///< seconds, sent in the Session header
    int orphanTimeout = 10;   ///< seconds that a UDP session outlives its connection without activity

    bool operator==(const LimitsConfig& other) const;
};

/// Where recordings are kept and how many.
struct RecordingConfig
{
    std::string directory = "./var/recordings";
    int segment = 10;                              ///< seconds
    std::int64_t maxSize = std::int64_t{1} << 30;  ///< bytes of all recordings together; 0: no limit
    std::int64_t maxAge = 0;                       ///< seconds; 0: no limit
    std::string minFree = "auto";                  ///< of the disk. \see FreeSpace

    bool operator==(const RecordingConfig& other) const;
};

/// The whole configuration. ConfigKeys.cpp has each setting's key in the file, its range and its meaning.
struct ServerConfig
{
    std::string listen = "127.0.0.1";
    int port = 8554;                 ///< TCP port of RTSP; 0: any free one
    int threads = 0;                 ///< event loops; 0: one for each core, at most 4
    std::string logLevel = "info";   ///< trace, debug, info, warning, error or off
    std::string logFormat = "text";  ///< "text" or "json"
    std::string realm = "ovrtspd";
    bool digestWithoutQop = true;  ///< accept Digest responses without qop, replayable for a minute
    bool sandbox = true;           ///< take from the process what it does not need
    std::string usersFile;         ///< path of a file with further users and groups; empty: none
    std::vector<UserConfig> users;
    std::vector<GroupConfig> groups;
    LimitsConfig limits;
    AuthConfig auth;
    TlsConfig tls;
    TunnelConfig tunnel;
    HttpConfig http;
    SrtpConfig srtp;
    std::string security =
        "none";  ///< what media must be protected by: "none", "tls", "srtp" or "any-encrypted"
    TalkBackConfig talkBack;
    HooksConfig hooks;
    MulticastConfig multicast;
    std::string liveController = "first";  ///< controller of orv/live: "first", "second" or "both"
    int mtu = PacketSize::mtu;             ///< of the network path, bytes; used by the second controller only
    RecordingConfig recording;
    int rtpPort = 0;  ///< even UDP port of the server's RTP, RTCP is the next; 0: any free pair
    bool segmentationOffload = true;  ///< UDP GSO where the system supports it
    std::string start = "burst";      ///< how viewers of live streams start: "burst", "paced" or "key-frame"
    int startRate = 2;                ///< max rate of "paced", multiple of real time
    bool gopCache = true;             ///< false: start is "key-frame"
    int frozenAfter = 5;              ///< seconds without a frame
    int linger = 5;                   ///< seconds that a source runs after its last viewer left
    std::vector<CameraConfig> cameras;

    bool operator==(const ServerConfig& other) const;

    /// The name of a stream, configured or not, in the log. \see StreamName
    std::string streamName(int cameraId, int streamId) const;

    /// Event loops for each of the server's tasks: `threads`, or as many as there are cores, at most 4.
    int loopCount() const;

    /// Whether some camera, or the default, has `security` set to `protection`.
    bool requiresProtection(std::string_view protection) const;

    /// Whether clients can send audio to some camera.
    bool offersTalkBack() const;

    /// The configuration without a file: the defaults with embeddedCameras(), the first stream recorded.
    static ServerConfig embedded();
    /// Camera 1 with stream 0 (1280x720, 2000 kbit/s) and stream 1 (640x360, 500 kbit/s), both with audio;
    /// also what a file without a [[camera]] gets.
    static std::vector<CameraConfig> embeddedCameras();

    /// \returns settings that are valid but probably unintended, one sentence each; without credentials
    std::vector<std::string> warnings() const;
};

}  // namespace refhost

#include "refhost/config/ConfigReader.h"

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

namespace refhost
{
namespace
{

using testing::HasSubstr;

ServerConfig readGood(const std::string& text, const std::string& directory = {})
{
    const ConfigResult result = ConfigReader::read(text, directory);
    for (const ConfigProblem& problem : result.problems)
    {
        ADD_FAILURE() << problem.toString("text");
    }
    return result.config.value_or(ServerConfig());
}

TEST(ConfigReader, EmptyFileIsTheEmbeddedConfigurationWithoutRecordings)
{
    ServerConfig expected = ServerConfig::embedded();
    EXPECT_EQ(expected.cameras[0].streams[0].record, RecordMode::always);
    EXPECT_FALSE(expected.cameras[0].streams[1].isRecorded());
    expected.cameras[0].streams[0].record = RecordMode::never;
    EXPECT_EQ(readGood(""), expected);
    EXPECT_EQ(readGood("# nothing\n\n"), expected);
}

TEST(ConfigReader, RecordingsAreKeptWhereTheFileSays)
{
    EXPECT_EQ(readGood("", "/etc/place").recording.directory, "./var/recordings");
    EXPECT_EQ(readGood("[recording]\ndirectory = \"kept\"", "/etc/place").recording.directory,
              "/etc/place/kept");
    EXPECT_EQ(readGood("[recording]\ndirectory = \"/srv/kept\"", "/etc/place").recording.directory,
              "/srv/kept");
    const ConfigResult nowhere = ConfigReader::read("[recording]\ndirectory = \"\"");
    ASSERT_EQ(nowhere.problems.size(), 1U);
    EXPECT_EQ(nowhere.problems[0].message, "directory must not be empty");
}

TEST(ConfigReader, AStreamIsRecordedAlwaysOnEventsOrNever)
{
    const auto modeOf = [](const std::string& value) {
        return readGood("[[camera]]\n[[camera.stream]]\nrecord = " + value)
            .cameras.at(0)
            .streams.at(0)
            .record;
    };
    EXPECT_EQ(modeOf("\"always\""), RecordMode::always);
    EXPECT_EQ(modeOf("\"events\""), RecordMode::events);
    EXPECT_EQ(modeOf("\"never\""), RecordMode::never);
    EXPECT_EQ(modeOf("true"), RecordMode::always);
    EXPECT_EQ(modeOf("false"), RecordMode::never);

    const ConfigResult other = ConfigReader::read("[[camera]]\n[[camera.stream]]\nrecord = \"motion\"");
    ASSERT_EQ(other.problems.size(), 1U);
    EXPECT_THAT(other.problems[0].message, HasSubstr("record"));
    EXPECT_THAT(other.problems[0].message, HasSubstr("\"events\""));
    const ConfigResult flag = ConfigReader::read("[[camera]]\n[[camera.stream]]\nstart = true");
    ASSERT_EQ(flag.problems.size(), 1U);
    EXPECT_EQ(flag.problems[0].message, "start must be a string, not true or false");
}

TEST(ConfigReader, TheEmbeddedConfigurationIsOneCameraWithTwoStreams)
{
    const ServerConfig config = ServerConfig::embedded();
    EXPECT_EQ(config.listen, "127.0.0.1");
    EXPECT_EQ(config.port, 8554);
    ASSERT_EQ(config.cameras.size(), 1U);
    ASSERT_EQ(config.cameras[0].streams.size(), 2U);
    EXPECT_EQ(config.cameras[0].id, 1);
    const StreamConfig& main = config.cameras[0].streams[0];
    EXPECT_EQ(main.id, 0);
    EXPECT_EQ(main.width, 1280);
    EXPECT_EQ(main.height, 720);
    EXPECT_EQ(main.bitRate, 2000);
    const StreamConfig& sub = config.cameras[0].streams[1];
    EXPECT_EQ(sub.id, 1);
    EXPECT_EQ(sub.width, 640);
    EXPECT_EQ(sub.height, 360);
    EXPECT_EQ(sub.bitRate, 500);
    for (const StreamConfig& stream : config.cameras[0].streams)
    {
        EXPECT_EQ(stream.source.kind, SourceConfig::Kind::synthetic);
        EXPECT_EQ(stream.frameRate, 25);
        EXPECT_EQ(stream.videoCodec, Codec::h264);
        EXPECT_EQ(stream.audioCodec, Codec::pcmu);
    }
}

TEST(ConfigReader, ReadsEveryKey)
{
    const ServerConfig config = readGood(R"(
listen = "::1"
port = 554
rtp-port = 5004
threads = 2
log-level = "debug"
realm = "yard"
digest-without-qop = false
sandbox = false
segmentation-offload = false
gop-cache = false
linger = 7
live-controller = "second"
mtu = 1500

[talk-back]
policy = "newest"
output = "pulse"
device = "hall"
sample-rate = 16000
channels = 2
encoder-type = 8
[multicast]
pool = "239.1.0.0/16"
port = 6000
ttl = 16
interface = "eth0"
[limits]
connections = 1
connections-per-address = 2
sessions = 3
sessions-per-address = 4
send-buffer = 64
talk-senders = 5
header-count = 8
header-bytes = 600
body-bytes = 7
handshake-timeout = 8
setup-timeout = 6
idle-timeout = 9
session-timeout = 10
orphan-timeout = 11

[[user]]
name = "admin"
password = "a\"b:c"
[[user]]
name = "guest"
password = "g"

[[camera]]
id = 3
name = "Hof ä"
talk-back = "aac"
[[camera.stream]]
id = 4
source = "rtsp"
location = "rtsp://u:p@192.0.2.1/x"
video = "h265"
width = 320
height = 240
frame-rate = 5
bit-rate = 100
gop = 10
audio = "aac"
multicast = "239.2.3.4:7000"
)");
    LimitsConfig limits;
    limits.connections = 1;
    limits.connectionsPerAddress = 2;
    limits.sessions = 3;
    limits.sessionsPerAddress = 4;
    limits.sendBuffer = 64;
    limits.talkSenders = 5;
    limits.headerCount = 8;
    limits.headerBytes = 600;
    limits.bodyBytes = 7;
    limits.handshakeTimeout = 8;
    limits.setupTimeout = 6;
    limits.idleTimeout = 9;
    limits.sessionTimeout = 10;
    limits.orphanTimeout = 11;
    StreamConfig stream;
    stream.id = 4;
    stream.source = {SourceConfig::Kind::rtsp, "rtsp://u:p@192.0.2.1/x"};
    stream.width = 320;
    stream.height = 240;
    stream.frameRate = 5;
    stream.bitRate = 100;
    stream.gop = 10;
    stream.videoCodec = Codec::h265;
    stream.audioCodec = Codec::aac;
    stream.multicast = "239.2.3.4:7000";
    ServerConfig expected;
    expected.listen = "::1";
    expected.port = 554;
    expected.rtpPort = 5004;
    expected.threads = 2;
    expected.logLevel = "debug";
    expected.realm = "yard";
    expected.digestWithoutQop = false;
    expected.sandbox = false;
    expected.segmentationOffload = false;
    expected.gopCache = false;
    expected.linger = 7;
    expected.limits = limits;
    expected.users = {{"admin", "a\"b:c"}, {"guest", "g"}};
    expected.cameras = {{3, "Hof ä", {stream}, Codec::aac}};
    expected.talkBack = {"newest", "pulse", "hall", 16000, 2, 8};
    expected.multicast = {"239.1.0.0/16", 6000, 16, "eth0"};
    expected.liveController = "second";
    expected.mtu = 1500;
    EXPECT_EQ(config, expected);
}

TEST(ConfigReader, ReadsEveryKindOfSource)
{
    const ServerConfig config = readGood(R"([[camera]]
[[camera.stream]]
id = 0
[[camera.stream]]
id = 1
source = "file"
location = "/a.mp4"
[[camera.stream]]
id = 2
source = "v4l2"
location = "/dev/video0"
[[camera.stream]]
id = 3
source = "rtsp"
location = "rtsps://h/"
[[camera.stream]]
id = 4
source = "launch"
location = """
videotestsrc ! x264enc name=video
"""
)");
    ASSERT_EQ(config.cameras.size(), 1U);
    const std::vector<StreamConfig>& streams = config.cameras[0].streams;
    ASSERT_EQ(streams.size(), 5U);
    EXPECT_EQ(streams[0].source, (SourceConfig{SourceConfig::Kind::synthetic, ""}));
    EXPECT_EQ(streams[1].source, (SourceConfig{SourceConfig::Kind::file, "/a.mp4"}));
    EXPECT_EQ(streams[2].source, (SourceConfig{SourceConfig::Kind::v4l2, "/dev/video0"}));
    EXPECT_EQ(streams[3].source, (SourceConfig{SourceConfig::Kind::rtsp, "rtsps://h/"}));
    EXPECT_EQ(streams[4].source,
              (SourceConfig{SourceConfig::Kind::launch, "videotestsrc ! x264enc name=video\n"}));
}

TEST(ConfigReader, RelativePathsAreRelativeToTheFilesDirectory)
{
    const std::string text = "[[camera]]\n[[camera.stream]]\nsource = \"file\"\nlocation = \"a/b.mp4\"\n";
    EXPECT_EQ(readGood(text, "/etc/cams").cameras.at(0).streams.at(0).source.location, "/etc/cams/a/b.mp4");
    EXPECT_EQ(readGood(text).cameras.at(0).streams.at(0).source.location, "a/b.mp4");
    const std::string wav = "[talk-back]\noutput = 'wav'\ndevice = 'talk.wav'\n";
    EXPECT_EQ(readGood(wav, "/var/lib").talkBack.device, "/var/lib/talk.wav");
    EXPECT_EQ(readGood("[talk-back]\ndevice = 'plughw:0'\n", "/etc").talkBack.device, "plughw:0");
    const TlsConfig tls = readGood("[tls]\ncertificate = 'c'\nkey = 'k'\nclient-ca = '/ca'\n", "/etc").tls;
    EXPECT_EQ(tls.certificate + tls.key + tls.clientCa, "/etc/c/etc/k/ca");
    EXPECT_EQ(tls.directory, TlsConfig().directory);
    EXPECT_EQ(readGood("[tls]\ndirectory = 'd'\n", "/etc").tls.directory, "/etc/d");
}

TEST(ConfigReader, ReadsARenamedKeyUnderItsFormerNameWithAWarning)
{
    const ConfigResult result = ConfigReader::read("port = 0\n[limits]\n talkers = 4711\n");
    ASSERT_TRUE(result.config.has_value());
    EXPECT_EQ(result.config->limits.talkSenders, 4711);
    ASSERT_EQ(result.warnings.size(), 1U);
    EXPECT_EQ(result.warnings[0].toString("f"),
              "f:3:2: \"talkers\" is the former name of \"talk-senders\": rename it");
}

TEST(ConfigReader, DoesNotWarnOfKeysUnderTheirNewNames)
{
    EXPECT_TRUE(ConfigReader::read("[limits]\ntalk-senders = 5").warnings.empty());
    EXPECT_TRUE(ConfigReader::read("[limits]\nsessions = 5").warnings.empty());
}

TEST(ConfigReader, WarnsOfKeysThatTheirSourceIgnores)
{
    const auto warningsOf = [](const std::string& keys)
    {
        const ConfigResult result = ConfigReader::read("[[camera]]\n[[camera.stream]]\n" + keys);
        EXPECT_TRUE(result.config.has_value()) << keys;
        std::string all;
        for (const ConfigProblem& warning : result.warnings)
        {
            all += warning.toString("f") + "\n";
        }
        return all;
    };
    const std::string camera = "source = \"rtsp\"\nlocation = \"rtsp://192.0.2.1/x\"\n";
    EXPECT_EQ(
        warningsOf(camera + "gop = 10\nwidth = 320\n"),
        "f:6:9: without effect for this source: width, gop (video that can be sent as it is, is; they hold "
        "where it has to be encoded)\n");
    EXPECT_EQ(warningsOf("source = \"file\"\nlocation = \"a.mp4\"\nbit-rate = 100\ntransport = \"udp\"\n"),
              "f:6:13: without effect for this source: transport (only \"rtsp\" heeds them)\n");
    EXPECT_EQ(warningsOf(camera + "transport = \"udp\"\naudio = \"none\"\n"), "");
    EXPECT_EQ(warningsOf(camera + "width = 1280\n"), "") << "the default says nothing";
    EXPECT_EQ(warningsOf("width = 320\ngop = 10\n"), "");
}

struct BadCase
{
    std::string name;
    std::string text;
    int line;
    int column;
    std::string message;

    friend std::ostream& operator<<(std::ostream& out, const BadCase& bad)
    {
        return out << bad.name;
    }
};

class BadConfig : public testing::TestWithParam<BadCase>
{
};

TEST_P(BadConfig, IsRefusedWithLineAndColumn)
{
    const ConfigResult result = ConfigReader::read(GetParam().text);
    EXPECT_FALSE(result.config.has_value());
    ASSERT_EQ(result.problems.size(), 1U);
    EXPECT_THAT(result.problems[0].message, HasSubstr(GetParam().message));
    EXPECT_EQ(result.problems[0].line, GetParam().line);
    EXPECT_EQ(result.problems[0].column, GetParam().column);
}

const std::string aStream = "[[camera]]\n[[camera.stream]]\n";

const std::vector<BadCase> badCases{
    {"Syntax", "port = = 1", 1, 8, "not valid TOML"},
    {"UnendedString", "\nrealm = \"x", 2, 11, "not valid TOML"},
    {"KeyTwice", "port = 1\nport = 2", 2, 8, "cannot redefine"},
    {"UnknownKey", "prot = 1", 1, 1, "unknown key \"prot\"; did you mean \"port\"?"},
    {"OtherSpelling", "gopCache = true", 1, 1, "did you mean \"gop-cache\"?"},
    {"UnknownSection", "[limit]", 1, 2, "did you mean \"limits\"?"},
    {"NothingLikeIt", "\n xyzzy = 1", 2, 2, "unknown key \"xyzzy\""},
    {"KeyOfTheTopInASection", "[limits]\nport = 1", 2, 1, "belongs to the top of the file"},
    {"KeyOfLimitsAtTheTop", "sessions = 1", 1, 1, "belongs to [limits]"},
    {"HostName", "listen = \"localhost\"", 1, 10, "listen must be an IPv4 or IPv6 address"},
    {"NegativePort", "port = -1", 1, 8, "port must be 0 to 65535, not -1"},
    {"PortTooHigh", "port = 65536", 1, 8, "port must be 0 to 65535, not 65536"},
    {"PortBeyondInt", "port = 4294967297", 1, 8, "not 4294967297"},
    {"PortAsText", "port = \"8554\"", 1, 8, "port must be a whole number, not a string"},
    {"PortAsFraction", "port = 1.0", 1, 8, "not a number with a fraction"},
    {"OddRtpPort", "rtp-port = 5005", 1, 12, "rtp-port must be a multiple of 2"},
    {"Level", "log-level = \"loud\"", 1, 13, "must be one of \"trace\""},
    {"LevelAsList", "log-level = [1]", 1, 13, "must be a string, not a list"},
    {"FlagAsText", "gop-cache = \"no\"", 1, 13, "must be true or false, not a string"},
    {"RealmWithQuotes", "realm = 'a\"b'", 1, 9, "must not hold quotes"},
    {"RealmWithLineEnd", "realm = \"a\\r\\nb\"", 1, 9, "must not hold control characters"},
    {"WavWithoutPath", "[talk-back]\noutput = 'wav'", 2, 10, "the output \"wav\" needs a path as device"},
    {"TwoCertificates", "[tls]\nself-signed = true\ncertificate = 'c'", 2, 15, "remove one of the two"},
    {"TalkBackAsText", "talk-back = 'pcmu'", 1, 13, "write [talk-back]"},
    {"LiveController", "live-controller = \"third\"", 1, 19, "must be one of \"first\""},
    {"PoolOfUnicast", "[multicast]\npool = '192.0.2.0/24'", 2, 8, "pool must be IPv4 multicast addresses"},
    {"OddGroupPort", "[multicast]\nport = 5005", 2, 8, "port must be a multiple of 2"},
    {"KeyOfMulticastAtTheTop", "ttl = 1", 1, 1, "belongs to [multicast]"},
    {"FingerprintTooShort", aStream + "tls-fingerprint = 'AA:BB'", 3, 19,
     "tls-fingerprint must be a SHA-256 fingerprint"},
    {"GroupWithoutPort", aStream + "multicast = '239.1.2.3'", 3, 13, "multicast must be an IPv4 multicast"},
    {"GroupTwice",
     aStream + "multicast = '239.1.2.3:5004'\n[[camera.stream]]\nid = 1\nmulticast = '239.1.2.3:5006'", 6, 13,
     "another stream has this multicast group"},
    {"KeyOfTalkBackAtTheTop", "policy = 'mix'", 1, 1, "belongs to [talk-back]"},
    {"KeyOfCameraInASection", "[limits]\ntalk-back = 'aac'", 2, 1, "belongs to [[camera]]"},
    {"FormerKeyElsewhere", "talkers = 5", 1, 1, "belongs to [limits]"},
    {"FormerKeyOutOfRange", "[limits]\ntalkers = 0", 2, 11, "talkers must be 1 to 999999, not 0"},
    {"FormerAndNewKey", "[limits]\ntalk-senders = 5\ntalkers = 5", 3, 1,
     "\"talkers\" is the former name of \"talk-senders\": remove one of the two"},
    {"FormerBeforeNewKey", "[limits]\ntalkers = 5\ntalk-senders = 6", 2, 1,
     "\"talkers\" is the former name of \"talk-senders\": remove one of the two"},
    {"LimitsAsNumber", "limits = 3", 1, 10, "write [limits]"},
    {"UserAsSection", "[user]\nname = 'a'", 1, 1, "write [[user]]"},
    {"CameraAsText", "camera = 'x'", 1, 10, "write [[camera]]"},
    {"CameraListOfNumbers", "camera = [1]", 1, 11, "write [[camera]]"},
    {"EmptyCameraList", "camera = []", 1, 10, "write [[camera]]"},
    {"NoPassword", "[[user]]\nname = 'a'", 1, 1, "has no password"},
    {"EmptyPassword", "[[user]]\nname = 'a'\npassword = ''", 3, 12, "password must not be empty"},
    {"NoName", "[[user]]\npassword = 'a'", 1, 1, "has no name"},
    {"NameWithColon", "[[user]]\nname = 'a:b'\npassword = 'c'", 2, 8, "name must not hold a colon"},
    {"UserTwice", "[[user]]\nname='a'\npassword='b'\n[[user]]\nname='a'\npassword='c'", 5, 6,
     "user \"a\" is defined twice"},
    {"GrantOfNoCamera", "[[user]]\nname='a'\npassword='b'\nlive=''", 4, 6,
     "live must be \"*\", \"none\" or numbers"},
    {"GrantOfAWord", "[[user]]\nname='a'\npassword='b'\ntalk='all'", 4, 6, "talk must be \"*\""},
    {"GrantOfANumber", "[[user]]\nname='a'\npassword='b'\nlive=1", 4, 6, "live must be a string"},
    {"GroupWithoutName", "[[group]]\nlive='*'", 1, 1, "this [[group]] has no name"},
    {"NamedGroupTwice", "[[group]]\nname='g'\n[[group]]\nname='g'", 4, 6, "group \"g\" is defined twice"},
    {"GroupWithComma", "[[group]]\nname='g,h'", 2, 6, "must not hold a comma"},
    {"GroupWithBlank", "[[group]]\nname=' g'", 2, 6, "nor start or end with a blank"},
    {"PasswordHashThatIsNone", "[[user]]\nname='a'\npassword-hash='b'", 3, 15, "--hash-password NAME"},
    {"NoPasswordWithoutCertificates", "[tls]\ncertificate-users=false\n[[user]]\nname='a'", 3, 1,
     "has no password and no password-hash"},
    {"GroupThatIsNotThere", "[[user]]\nname='a'\npassword='b'\ngroups='g'", 4, 8,
     "there is no [[group]] named \"g\""},
    {"AnonymousWithoutGrants", "[[user]]\nname='anonymous'", 2, 6, "needs live, playback or talk"},
    {"AnonymousAdmin", "[[user]]\nname='anonymous'\nadmin='1'", 3, 7, "cannot have admin"},
    {"AnonymousWithEmptyPassword", "[[user]]\nname='anonymous'\npassword=''", 3, 10,
     "password must not be empty"},
    {"CameraTwice", aStream + "[[camera]]\nid = 1\n[[camera.stream]]", 4, 6, "camera 1 is defined twice"},
    {"StreamTwice", aStream + "[[camera.stream]]\nid = 0", 4, 6, "stream 0 is defined twice"},
    {"NoStream", "[[camera]]\nid = 2", 1, 1, "camera 2 has no stream"},
    {"UnknownKeyOfStream", aStream + "fps = 3", 3, 1, "unknown key \"fps\""},
    {"OddWidth", aStream + "width = 641", 3, 9, "width must be a multiple of 2, not 641"},
    {"WideJpeg", aStream + "video = \"mjpeg\"\nwidth = 2048", 4, 9,
     "width must be a multiple of 8 up to 2040 with video = \"mjpeg\", not 2048"},
    {"HighJpeg", aStream + "video = \"mjpeg\"\nheight = 2160", 4, 10,
     "height must be a multiple of 8 up to 2040"},
    {"JpegOfHalfBlocks", aStream + "width = 1366\nvideo = \"mjpeg\"", 3, 9, "width must be a multiple of 8"},
    {"SourceKind", aStream + "source = \"mjpeg\"", 3, 10, "source must be one of \"synthetic\""},
    {"NoLocation", aStream + "source = \"file\"", 3, 10, "needs a location"},
    {"LocationOfSynthetic", aStream + "location = \"/x\"", 3, 12, "opens nothing"},
    {"NotRtsp", aStream + "source = 'rtsp'\nlocation = 'http://h/'", 4, 12, "must start with rtsp://"},
    {"MaskedUrl", aStream + "source = 'rtsp'\nlocation = 'rtsp://***@h/'", 4, 12, "credentials masked"},
    {"MaskedLaunch", aStream + "source = 'launch'\nlocation = 'rtspsrc user-pw=*** ! x name=video'", 4, 12,
     "credentials masked"},
    {"NothingToSend", aStream + "video = 'none'\naudio = 'none'", 4, 9, "has nothing to send"}};

INSTANTIATE_TEST_SUITE_P(ConfigReader, BadConfig, testing::ValuesIn(badCases),
                         [](const testing::TestParamInfo<BadCase>& tested) { return tested.param.name; });

TEST(ConfigReader, ReportsEveryProblemInTheOrderOfTheFile)
{
    const ConfigResult result =
        ConfigReader::read("prot = 1\nport = 99999\n[limits]\nsessions = 0\nfoo = 1\n");
    ASSERT_EQ(result.problems.size(), 4U);
    EXPECT_EQ(result.problems[0].line, 1);
    EXPECT_EQ(result.problems[1].line, 2);
    EXPECT_EQ(result.problems[2].line, 4);
    EXPECT_EQ(result.problems[3].line, 5);
}

TEST(ConfigReader, NeverRepeatsSecretsInItsProblems)
{
    const ConfigResult result = ConfigReader::read(
        "[[user]]\nname = 'a'\npassword = \"hush\\u0001\"\n[[camera]]\n[[camera.stream]]\nsource = 'rtsp'\n"
        "location = 'http://u:hush@h/'\n");
    ASSERT_EQ(result.problems.size(), 2U);
    for (const ConfigProblem& problem : result.problems)
    {
        EXPECT_EQ(problem.message.find("hush"), std::string::npos) << problem.message;
    }
}

TEST(ConfigReader, EveryPrefixOfAFileIsReadOrRefusedWithLineAndColumn)
{
    const std::string text =
        "port = 1\n[limits]\nsessions = 5\n[[user]]\nname = \"a\"\npassword = \"b\"\n[[camera]]\nid = 1\n"
        "[[camera.stream]]\nsource = \"rtsp\"\nlocation = \"rtsp://h/\"\n";
    for (std::size_t length = 0; length < text.size(); ++length)
    {
        const ConfigResult result = ConfigReader::read(text.substr(0, length));
        EXPECT_NE(result.config.has_value(), !result.problems.empty()) << length;
        for (const ConfigProblem& problem : result.problems)
        {
            EXPECT_GT(problem.line, 0) << length;
            EXPECT_GT(problem.column, 0) << length;
        }
    }
}

TEST(ConfigReader, ReportsWhyAFileCannotBeRead)
{
    const ConfigResult missing = ConfigReader::readFile("/nonexistent/file.toml");
    ASSERT_EQ(missing.problems.size(), 1U);
    EXPECT_EQ(missing.problems[0].toString("f"), "f: cannot be opened: No such file or directory");
    const ConfigResult directory = ConfigReader::readFile("/");
    ASSERT_EQ(directory.problems.size(), 1U);
    EXPECT_EQ(directory.problems[0].toString("/"), "/: cannot be read: Is a directory");
    const ConfigResult endless = ConfigReader::readFile("/dev/zero");
    ASSERT_EQ(endless.problems.size(), 1U);
    EXPECT_THAT(endless.problems[0].message, HasSubstr("larger than 1 MiB"));
}

TEST(ConfigReader, ProblemsHaveTheFormOfCompilers)
{
    EXPECT_EQ((ConfigProblem{3, 8, "port is odd"}).toString("a.toml"), "a.toml:3:8: port is odd");
}

TEST(ConfigReader, SetsKeysFromTheCommandLineWithTheSameChecks)
{
    ServerConfig config;
    EXPECT_EQ(ConfigReader::set(config, "port", "0"), "");
    EXPECT_EQ(config.port, 0);
    EXPECT_EQ(ConfigReader::set(config, "listen", "::"), "");
    EXPECT_EQ(config.listen, "::");
    EXPECT_EQ(ConfigReader::set(config, "gop-cache", "false"), "");
    EXPECT_FALSE(config.gopCache);
    for (const std::string text : {"", "x", "1x", " 1", "99999999999999999999", "65536", "-1", "1.0"})
    {
        EXPECT_THAT(ConfigReader::set(config, "port", text), HasSubstr("must be")) << text;
    }
    EXPECT_THAT(ConfigReader::set(config, "log-level", "x"), HasSubstr("must be one of"));
    EXPECT_EQ(config.port, 0);
    EXPECT_THAT(ConfigReader::set(config, "nonsense", "x"), HasSubstr("no key"));
}

TEST(ConfigReader, SizesAndTimesHaveUnits)
{
    const RecordingConfig recording =
        readGood("[recording]\nmax-size = \"50GiB\"\nmax-age = \"7d\"\nmin-free = \"10%\"").recording;
    EXPECT_EQ(recording.maxSize, std::int64_t{50} << 30);
    EXPECT_EQ(recording.maxAge, 7 * 86400);
    EXPECT_EQ(recording.minFree, "10%");
}

TEST(ConfigReader, SizesAndTimesWithoutAUnitAreMebibytesAndHours)
{
    const RecordingConfig recording = readGood("[recording]\nmax-size = 3\nmax-age = 2").recording;
    EXPECT_EQ(recording.maxSize, 3 * 1048576);
    EXPECT_EQ(recording.maxAge, 7200);
    EXPECT_EQ(readGood("[recording]\nmax-size = 0").recording.maxSize, 0);
}

TEST(ConfigReader, WrongSizesAndTimesAreRefused)
{
    const std::vector<std::pair<std::string, std::string>> wrong{
        {"max-size = \"50 gigs\"", "max-size must be a size such as \"50GiB\", not \"50 gigs\""},
        {"max-size = \"50\"", "max-size must be a size such as \"50GiB\", not \"50\""},
        {"max-size = -1", "max-size must be 0 to 1073741824, not -1"},
        {"max-size = 1073741825", "max-size must be 0 to 1073741824, not 1073741825"},
        {"max-size = \"2000TiB\"", "max-size must be at most 1024TiB, not \"2000TiB\""},
        {"max-size = 1.5", "max-size must be a whole number or a string, not a number with a fraction"},
        {"max-age = \"7 days\"", "max-age must be a time such as \"7d\" or \"12h\", not \"7 days\""},
        {"max-age = 1000000", "max-age must be 0 to 999999, not 1000000"},
        {"min-free = \"a lot\"",
         "min-free must be a size such as \"2GiB\", a share such as \"5%\", \"0\" or \"auto\", not \"a "
         "lot\""}};
    for (const auto& [line, message] : wrong)
    {
        const ConfigResult result = ConfigReader::read("[recording]\n" + line);
        ASSERT_EQ(result.problems.size(), 1U) << line;
        EXPECT_EQ(result.problems[0].message, message);
    }
}

TEST(ConfigReader, ReadsGroupsAndGrants)
{
    const ServerConfig config = readGood(R"(
[[group]]
name = "guards"
live = "*"
playback = "1, 3-5"
[[user]]
name = "a"
password = "p"
groups = "guards, others"
talk = "2"
admin = "none"
[[group]]
name = "others"
[[user]]
name = "anonymous"
live = "1"
)");
    ASSERT_EQ(config.groups.size(), 2U);
    EXPECT_EQ(config.groups[0].grants.live, "*");
    EXPECT_EQ(config.groups[0].grants.playback, "1, 3-5");
    EXPECT_TRUE(config.groups[1].grants.empty());
    ASSERT_EQ(config.users.size(), 2U);
    EXPECT_EQ(config.users[0].groupNames(), (std::vector<std::string>{"guards", "others"}));
    EXPECT_EQ(config.users[0].grants.talk, "2");
    EXPECT_EQ(config.users[0].grants.live, "");
    EXPECT_FALSE(config.users[0].unlimited());
    EXPECT_FALSE(config.users[0].isAnonymous());
    EXPECT_TRUE(config.users[1].isAnonymous());
}

}  // namespace
}  // namespace refhost

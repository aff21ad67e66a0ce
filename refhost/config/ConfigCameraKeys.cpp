#include "refhost/config/ConfigKeyMakers.h"
#include "refhost/config/ConfigKeys.h"

namespace refhost
{
namespace
{

using namespace ConfigKeyMakers;

using Camera = CameraConfig;
using Stream = StreamConfig;

constexpr int maxNumber = 999999;

}  // namespace

template <>
const std::vector<ConfigKey<CameraConfig>>& configKeys<CameraConfig>()
{
    static const std::vector<ConfigKey<Camera>> keys{
        number<&Camera::id>("id", "Number of the camera in URLs: rtsp://…/orv/live/CAMERA/STREAM.", 0,
                            maxNumber)
            .on(ReloadEffect::identity),
        text<&Camera::name>("name", "What people call the camera.", TextKind::plain).on(ReloadEffect::atOnce),
        size<&Camera::maxSize>(
            "max-size",
            "Size of this camera's recordings together; its oldest are removed beyond. 0 for "
            "no limit but those of [recording].",
            mebibyte)
            .on(ReloadEffect::atOnce),
        choice<&Camera::talkBack>("talk-back",
                                  "Codec in which clients may send audio to the device through this camera's "
                                  "streams; \"none\" offers no talk-back.",
                                  codecChoices(MediaKind::audio, true))
            .on(ReloadEffect::newcomers),
        choice<&Camera::clock>("clock",
                               "Whose clock dates the media of a camera that is read over RTSP: \"camera\" "
                               "takes what its sender reports say, \"server\" when its packets arrive.",
                               {"camera", "server"})
            .on(ReloadEffect::source),
        choice<&Camera::security>(
            "security",
            "What the camera's media must be protected by; \"default\" is the key of the "
            "same name at the top.",
            {"default", "none", "tls", "srtp", "any-encrypted"})
            .on(ReloadEffect::newcomers),
        choice<&Camera::away>("away",
                              "What viewers get while the camera is frozen or cannot be read: \"wait\" keeps "
                              "their sessions, which go on when it is back; \"end\" ends them.",
                              {"wait", "end"})
            .on(ReloadEffect::atOnce),
    };
    return keys;
}

template <>
const std::vector<ConfigKey<StreamConfig>>& configKeys<StreamConfig>()
{
    static const std::vector<ConfigKey<Stream>> keys{
        number<&Stream::id>("id", "Number of the stream in URLs; unique within its camera.", 0, maxNumber)
            .on(ReloadEffect::identity),
        choice<&Stream::source, &SourceConfig::kind>(
            "source",
            "Where video and audio come from: \"synthetic\" is a test pattern with the time and a tone, "
            "\"file\" a media file played in a loop, \"v4l2\" a video device, \"rtsp\" another camera, "
            "\"rtsp-gst\" the same read by GStreamer, \"launch\" a GStreamer launch line.",
            {sourceKinds.begin(), sourceKinds.end()})
            .on(ReloadEffect::viewers),
        text<&Stream::source, &SourceConfig::location>(
            "location",
            "What the source opens: the file's path (relative to this file), the device (\"/dev/video0\"), "
            "the rtsp:// or rtsps:// URL, or the launch line, whose elements named \"video\" and \"audio\" "
            "are "
            "sent. Not for \"synthetic\".",
            TextKind::location)
            .on(ReloadEffect::viewers),
        choice<&Stream::source, &SourceConfig::transport>(
            "transport",
            "What \"rtsp\" asks a camera for first: \"tcp\" is its connection, \"udp\" are datagrams. The "
            "other "
            "one follows where the camera refuses that, or where nothing comes over UDP for five seconds.",
            {"tcp", "udp"})
            .on(ReloadEffect::source),
        flag<&Stream::source, &SourceConfig::tlsVerify>(
            "tls-verify",
            "Whether \"rtsp\" trusts only cameras of rtsps:// whose certificate is of a CA that the system "
            "knows "
            "and holds the host's name; false trusts every one, and so whoever answers.")
            .on(ReloadEffect::source),
        text<&Stream::source, &SourceConfig::tlsFingerprint>(
            "tls-fingerprint",
            "SHA-256 fingerprint of the certificate of a camera of rtsps://, the only one that \"rtsp\" then "
            "trusts, whoever signed it; empty leaves it to tls-verify.",
            TextKind::fingerprint)
            .on(ReloadEffect::source),
        choice<&Stream::videoCodec>("video", "Codec of the video.", codecChoices(MediaKind::video))
            .on(ReloadEffect::viewers),
        number<&Stream::width>("width", "Width of the video in pixels, even, where the server encodes.", 16,
                               8192, 2)
            .on(ReloadEffect::source),
        number<&Stream::height>("height", "Height of the video in pixels, even, where the server encodes.",
                                16, 8192, 2)
            .on(ReloadEffect::source),
        number<&Stream::frameRate>("frame-rate", "Frames a second, where the server encodes.", 1, 120)
            .on(ReloadEffect::source),
        number<&Stream::bitRate>("bit-rate", "Rate of the encoded video in kbit/s, where the server encodes.",
                                 16, 200000)
            .on(ReloadEffect::source),
        number<&Stream::gop>("gop", "Frames from one key frame to the next, where the server encodes.", 1,
                             1000)
            .on(ReloadEffect::source),
        choice<&Stream::audioCodec>("audio", "Codec of the audio.", codecChoices(MediaKind::audio))
            .on(ReloadEffect::viewers),
        text<&Stream::multicast>("multicast",
                                 "Multicast group that is this stream's alone, as \"239.1.2.3:5004\" with an "
                                 "even port; empty takes one of the pool.",
                                 TextKind::group),
        choice<&Stream::start>("start",
                               "How viewers of this stream start, where not as the key at the top says.",
                               {"default", "burst", "paced", "key-frame"})
            .on(ReloadEffect::newcomers),
        choice<&Stream::record>(
            "record",
            "When the stream is recorded: \"always\", on \"events\" that are posted to the HTTP service, or "
            "\"never\". Its source runs all the time unless it is \"never\". true stands for \"always\", "
            "false for \"never\".",
            {"always", "events", "never"})
            .orFlag("always", "never")
            .on(ReloadEffect::atOnce),
        number<&Stream::preRoll>("pre-roll",
                                 "Seconds before an event that are recorded with it, at least; they wait in "
                                 "memory, at most 64 MiB of a stream and 512 MiB of all.",
                                 0, 60)
            .on(ReloadEffect::atOnce),
        number<&Stream::postRoll>(
            "post-roll", "Seconds after an event that are recorded; the next key frame ends it.", 1, 3600)
            .on(ReloadEffect::atOnce),
    };
    return keys;
}

}  // namespace refhost

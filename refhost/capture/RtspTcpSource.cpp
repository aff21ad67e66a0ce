#include "refhost/capture/RtspTcpSource.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/Decimal.h"
#include "refhost/base/HostClock.h"
#include "refhost/base/Log.h"
#include "refhost/capture/CaptureClock.h"
#include "refhost/capture/RtpPayloadCheck.h"
#include "refhost/capture/SenderReports.h"

namespace refhost
{
namespace
{

constexpr int statusOk = 200;
constexpr int statusFirstRedirect = 300;
constexpr int statusUnsupportedTransport = 461;
constexpr int maxRedirects = 3;
constexpr int defaultPort = 554;
constexpr std::size_t maxDescribedMedia = 32;
constexpr guint64 maxQueuedBytes = 8'000'000;  // of a track, for a pipeline that is slow
constexpr std::chrono::seconds reportInterval(5);
constexpr std::chrono::seconds clockPatience(20);
constexpr std::chrono::seconds shortestKeepAlive(2);
constexpr std::size_t rtpHeaderSize = 12;

struct FreeUrl
{
    void operator()(GstRTSPUrl* url) const
    {
        gst_rtsp_url_free(url);
    }
};

struct FreeDescription
{
    void operator()(GstSDPMessage* message) const
    {
        gst_sdp_message_free(message);
    }
};

/// The URL of a control attribute (RFC 2326, section C.1.1).
std::string resolved(const std::string& base, const std::string& control)
{
    if (control.empty() || control == "*")
    {
        return base;
    }
    if (control.find("://") != std::string::npos)
    {
        return control;
    }
    return base + (base.back() == '/' || control.front() == '/' ? "" : "/") + control;
}

std::string textOf(const char* text)
{
    return text == nullptr ? std::string() : std::string(text);
}

/// As it was before it was escaped for a URL; unchanged where it was not.
std::string unescaped(const std::string& text)
{
    const std::unique_ptr<char, decltype(&g_free)> plain(g_uri_unescape_string(text.c_str(), nullptr),
                                                         &g_free);
    return plain ? plain.get() : text;
}

}  // namespace

RtspTcpSource::RtspTcpSource(const StreamConfig& config, MediaSink& sink)
    : config_(config),
      sink_(sink),
      conversation_([this](int channel, const std::uint8_t* data, std::size_t size)
                    { onPacket(channel, data, size); }),
      name_(RtcpWriter::randomName())
{
}

RtspTcpSource::~RtspTcpSource()
{
    stop();
}

bool RtspTcpSource::build(GstBin* pipeline, std::string&)
{
    pipeline_ = pipeline;
    thread_ = std::thread([this] { run(); });
    return true;
}

void RtspTcpSource::stop()
{
    conversation_.stop();
    if (thread_.joinable())
    {
        thread_.join();
    }
}

void RtspTcpSource::run()
{
    std::string error;
    if (!open(error))
    {
        sink_.sourceEnded(error, refused_);
        return;
    }
    using Clock = CameraConversation::Clock;
    const Clock::time_point begin = Clock::now();
    const auto keepAliveInterval = std::max<std::chrono::seconds>(sessionTimeout_ / 2, shortestKeepAlive);
    Clock::time_point keepAliveAt = begin + keepAliveInterval;
    Clock::time_point reportAt = begin + reportInterval;
    bool clockJudged = false;
    while (conversation_.receive(std::min(keepAliveAt, reportAt), error))
    {
        const Clock::time_point now = Clock::now();
        if (bye_)
        {
            error = "the camera said that it ends its media";
            break;
        }
        if (now >= keepAliveAt)
        {
            keepAliveAt = now + keepAliveInterval;
            if (!keepAlive(error))
            {
                break;
            }
        }
        if (now >= reportAt)
        {
            reportAt = now + reportInterval;
            if (!sendReceiverReports(error))
            {
                break;
            }
        }
        if (!clockJudged && now - begin >= clockPatience)
        {
            clockJudged = true;
            if (std::none_of(tracks_.begin(), tracks_.end(),
                             [](const auto& track) { return track->reported; }))
            {
                sink_.sourceClockUnusable("the camera sends no sender reports");
            }
        }
    }
    // Whether it arrives does not matter: without it the session times out.
    std::string ignored;
    conversation_.sendRequest("TEARDOWN", uri_, {{"Session", session_}}, ignored);
    sink_.sourceEnded(error, false);
}

bool RtspTcpSource::open(std::string& error)
{
    if (!openConversation(config_.source.location, error) || !describe(error))
    {
        return false;
    }
    for (const std::unique_ptr<Track>& track : tracks_)
    {
        if (!setUp(*track, error))
        {
            return false;
        }
    }
    for (const std::unique_ptr<Track>& track : tracks_)
    {
        if (!addEntry(*track, error))
        {
            return false;
        }
    }
    if (!play(error))
    {
        return false;
    }
    partComplete();
    return true;
}

bool RtspTcpSource::openConversation(const std::string& url, std::string& error)
{
    // A password may hold what otherwise ends a URL's authority.
    const std::string login(Log::userInfo(url));
    const std::size_t place = url.find("//");
    std::string bare = url;
    if (!login.empty() && place != std::string::npos)
    {
        bare.erase(place + 2, login.size() + 1);
    }
    GstRTSPUrl* parsed = nullptr;
    if (gst_rtsp_url_parse(bare.c_str(), &parsed) != GST_RTSP_OK)
    {
        error = "the camera's URL cannot be read";
        return false;
    }
    const std::unique_ptr<GstRTSPUrl, FreeUrl> guard(parsed);
    const std::unique_ptr<char, decltype(&g_free)> uri(gst_rtsp_url_get_request_uri(parsed), &g_free);
    uri_ = uri.get();
    const int port = parsed->port == 0 ? defaultPort : parsed->port;
    if (!login.empty())
    {
        user_ = unescaped(login.substr(0, login.find(':')));
        password_ = login.find(':') == std::string::npos ? "" : unescaped(login.substr(login.find(':') + 1));
    }
    return conversation_.connect(textOf(parsed->host), port, {user_, password_}, error);
}

bool RtspTcpSource::ask(const std::string& method, const std::string& uri,
                        const CameraConversation::Headers& headers, CameraMessage& answer, std::string& error)
{
    if (!conversation_.request(method, uri, headers, answer, error))
    {
        return false;
    }
    if (answer.status != statusOk && answer.status / 100 != statusFirstRedirect / 100)
    {
        error = fmt::format(
            "the camera answered {} with {}", method,
            answer.startLine.substr(std::min(answer.startLine.find(' ') + 1, answer.startLine.size())));
        return false;
    }
    return true;
}

bool RtspTcpSource::describe(std::string& error)
{
    CameraMessage answer;
    for (int redirects = 0;; ++redirects)
    {
        if (!ask("DESCRIBE", uri_, {{"Accept", "application/sdp"}}, answer, error))
        {
            return false;
        }
        if (answer.status == statusOk)
        {
            break;
        }
        const std::string target(answer.header("location"));
        if (redirects == maxRedirects || target.rfind("rtsp://", 0) != 0)
        {
            error = "the camera sends its clients elsewhere, where they cannot follow";
            return false;
        }
        if (!openConversation(target, error))
        {
            return false;
        }
    }
    std::string base(answer.header("content-base"));
    base = base.empty() ? std::string(answer.header("content-location")) : base;
    return readDescription(answer.body, base.rfind("rtsp://", 0) == 0 ? base : uri_, error);
}

bool RtspTcpSource::readDescription(const std::string& text, const std::string& base, std::string& error)
{
    GstSDPMessage* parsed = nullptr;
    gst_sdp_message_new(&parsed);
    const std::unique_ptr<GstSDPMessage, FreeDescription> description(parsed);
    if (gst_sdp_message_parse_buffer(reinterpret_cast<const guint8*>(text.data()),
                                     static_cast<guint>(text.size()), parsed) != GST_SDP_OK)
    {
        error = "the camera's description cannot be read";
        return false;
    }
    const std::string whole = resolved(base, textOf(gst_sdp_message_get_attribute_val(parsed, "control")));
    const guint count = std::min<guint>(gst_sdp_message_medias_len(parsed), maxDescribedMedia);
    for (guint i = 0; i < count; ++i)
    {
        addTrack(*gst_sdp_message_get_media(parsed, i), base);
    }
    uri_ = whole;
    if (tracks_.empty())
    {
        error = "the source has neither video nor audio that can be sent";
        return false;
    }
    return true;
}

void RtspTcpSource::addTrack(const GstSDPMedia& media, const std::string& base)
{
    const std::string kind = textOf(gst_sdp_media_get_media(&media));
    const bool video = kind == "video";
    const bool configured =
        video ? config_.videoCodec.has_value() : kind == "audio" && config_.audioCodec.has_value();
    const bool known = std::any_of(tracks_.begin(), tracks_.end(),
                                   [video](const auto& track) { return track->video == video; });
    // A talk-back track of the camera's is described for sending to it.
    const bool backChannel = gst_sdp_media_get_attribute_val(&media, "sendonly") != nullptr;
    if (!configured || known || backChannel || gst_sdp_media_formats_len(&media) == 0)
    {
        return;
    }
    const char* const format = gst_sdp_media_get_format(&media, 0);
    auto track = std::make_unique<Track>();
    track->payloadType = leadingDecimal<int>(format).value_or(track->payloadType);
    GstValuePtr<GstCaps> caps(gst_sdp_media_get_caps_from_media(&media, track->payloadType));
    if (!caps)
    {
        return;
    }
    gst_sdp_media_attributes_to_caps(&media, caps.get());
    GstStructure* const fields = gst_caps_get_structure(caps.get(), 0);
    gst_structure_set_name(fields, "application/x-rtp");
    gst_structure_get_int(fields, "clock-rate", &track->clockRate);
    const std::string encoding = textOf(gst_structure_get_string(fields, "encoding-name"));
    track->codec = codecEncodedAs(encoding);
    if (track->clockRate <= 0 || encoding.empty())
    {
        return;
    }
    track->video = video;
    track->control = resolved(base, textOf(gst_sdp_media_get_attribute_val(&media, "control")));
    track->channel = static_cast<int>(2 * tracks_.size());
    track->caps = std::move(caps);
    track->clock =
        std::make_shared<SourceClock>(RtpClock(static_cast<std::uint32_t>(track->clockRate)), video);
    tracks_.push_back(std::move(track));
}

bool RtspTcpSource::setUp(Track& track, std::string& error)
{
    CameraConversation::Headers headers{{"Transport", fmt::format("RTP/AVP/TCP;unicast;interleaved={}-{}",
                                                                  track.channel, track.channel + 1)}};
    // What a server of this kind has kept of the past would arrive at once, as if it were captured at once.
    headers.emplace_back("Live-Start", "key-frame");
    if (!session_.empty())
    {
        headers.emplace_back("Session", session_);
    }
    CameraMessage answer;
    if (!ask("SETUP", track.control, headers, answer, error))
    {
        refused_ = answer.status == statusUnsupportedTransport;
        return false;
    }
    const std::string_view transport = answer.header("transport");
    refused_ = transport.find("TCP") == std::string_view::npos;
    if (refused_)
    {
        error = "the camera does not send over TCP";
        return false;
    }
    constexpr std::string_view channelsName = "interleaved=";
    const std::size_t channels = transport.find(channelsName);
    if (channels != std::string_view::npos)
    {
        track.channel =
            leadingDecimal<int>(transport.substr(channels + channelsName.size())).value_or(track.channel);
    }
    const std::string_view session = answer.header("session");
    session_ = session.substr(0, session.find(';'));
    constexpr std::string_view timeoutName = "timeout=";
    const std::size_t timeout = session.find(timeoutName);
    if (timeout != std::string_view::npos)
    {
        const int seconds = leadingDecimal<int>(session.substr(timeout + timeoutName.size())).value_or(0);
        sessionTimeout_ = seconds > 0 ? std::chrono::seconds(std::min(seconds, 3600)) : sessionTimeout_;
    }
    return true;
}

bool RtspTcpSource::addEntry(Track& track, std::string& error)
{
    GstElement* const entry = gst_element_factory_make("appsrc", nullptr);
    if (entry == nullptr)
    {
        error = "the GStreamer element appsrc is missing";
        return false;
    }
    // Not live: a live source waits for a pipeline that plays, and that one waits for the decoder's first
    // media.
    g_object_set(entry, "is-live", FALSE, "format", GST_FORMAT_TIME, "caps", track.caps.get(), "max-bytes",
                 guint64{0}, nullptr);
    gst_bin_add(pipeline_, entry);
    track.entry = GST_APP_SRC(entry);
    DecodeStage::Events events;
    events.pad = [this, clock = track.clock](GstPad* media, const GstCaps* caps)
    { sink_.addPad(media, caps, clock); };
    events.complete = [this] { partComplete(); };
    {
        const MutexLock guard(partsMutex_);
        ++openParts_;
    }
    track.decoder = std::make_unique<DecodeStage>(pipeline_, config_, std::move(events));
    const GstObjectPtr<GstPad> pad(gst_element_get_static_pad(entry, "src"));
    if (!track.decoder->open(pad.get(), error))
    {
        return false;
    }
    gst_element_sync_state_with_parent(entry);
    return true;
}

void RtspTcpSource::partComplete()
{
    {
        const MutexLock guard(partsMutex_);
        if (--openParts_ != 0)
        {
            return;
        }
    }
    sink_.padsComplete();
}

bool RtspTcpSource::play(std::string& error)
{
    CameraMessage answer;
    return ask("PLAY", uri_, {{"Session", session_}, {"Range", "npt=0.000-"}}, answer, error);
}

bool RtspTcpSource::keepAlive(std::string& error)
{
    // Waited for, because the login may have to be renewed. Some cameras do not answer while they send media.
    CameraMessage answer;
    return conversation_.request("OPTIONS", uri_, {{"Session", session_}}, answer, error) ||
           conversation_.isOpen();
}

void RtspTcpSource::onPacket(int channel, const std::uint8_t* data, std::size_t size)
{
    for (const std::unique_ptr<Track>& track : tracks_)
    {
        if (channel == track->channel)
        {
            return onMedia(*track, data, size);
        }
        if (channel == track->channel + 1)
        {
            return onReports(*track, data, size);
        }
    }
}

void RtspTcpSource::onMedia(Track& track, const std::uint8_t* data, std::size_t size)
{
    RtpPayloadCheck::Payload payload;
    if (track.entry == nullptr || !RtpPayloadCheck::find(data, size, payload) ||
        (data[1] & 0x7f) != track.payloadType || !RtpPayloadCheck::isWellFormed(track.codec, payload) ||
        gst_app_src_get_current_level_bytes(track.entry) > maxQueuedBytes)
    {
        return;
    }
    const std::uint16_t sequence = readBig16(data + 2);
    track.cycles += track.started && sequence < track.sequence ? 1 : 0;
    track.sequence = sequence;
    track.ssrc = readBig32(data + 8);
    track.started = true;
    const Duration time = track.clock->place(readBig32(data + 4), track.ssrc, now());
    // The plain header alone: what cameras put behind it is nothing that is passed on.
    GstBuffer* const buffer = gst_buffer_new_allocate(nullptr, rtpHeaderSize + payload.size, nullptr);
    gst_buffer_fill(buffer, 0, data, rtpHeaderSize);
    gst_buffer_memset(buffer, 0, 0x80, 1);
    gst_buffer_fill(buffer, rtpHeaderSize, payload.data, payload.size);
    GST_BUFFER_PTS(buffer) = static_cast<GstClockTime>(time.count());
    gst_app_src_push_buffer(track.entry, buffer);
}

void RtspTcpSource::onReports(Track& track, const std::uint8_t* data, std::size_t size)
{
    const auto take = [this, &track](const SenderReports::Report& report)
    {
        std::optional<Duration> placed;
        if (report.wall)
        {
            placed =
                *report.wall - HostClock::system().wall().mapping().at(baseTimeOf(GST_ELEMENT(pipeline_)));
        }
        track.reported = true;
        if (track.clock->report(report.timestamp, report.ssrc, placed, now()) ==
            SourceClock::Report::wrongClock)
        {
            sink_.sourceClockUnusable("the camera's clock is wrong");
        }
    };
    const auto end = [this, &track](std::uint32_t ssrc)
    { bye_ = bye_ || (track.started && ssrc == track.ssrc); };
    SenderReports::read(data, size, take, end);
}

bool RtspTcpSource::sendReceiverReports(std::string& error)
{
    for (const std::unique_ptr<Track>& track : tracks_)
    {
        if (!track->started)
        {
            continue;
        }
        RtcpWriter::ReceiverReport report;
        report.ssrc = track->ssrc ^ 0x5a5a5a5aU;
        report.hasBlock = true;
        report.source = track->ssrc;
        report.reception.highestSequence = track->cycles << 16U | track->sequence;
        const RtcpWriter packet = RtcpWriter::ofReceiver(report, name_, false);
        if (!conversation_.sendPacket(track->channel + 1, packet.data(), packet.size(), error))
        {
            return false;
        }
    }
    return true;
}

Duration RtspTcpSource::now() const
{
    return HostClock::system().now() - baseTimeOf(GST_ELEMENT(pipeline_));
}

}  // namespace refhost

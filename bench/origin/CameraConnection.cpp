#include "bench/origin/CameraConnection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace rtsporigin
{
namespace
{

using std::chrono::nanoseconds;

constexpr int videoClockRate = 90000;
constexpr int audioClockRate = 8000;
constexpr int secondsAReport = 5;

/// The number behind the last "/camera/" of a URL; 0 where there is none.
int cameraOf(const std::string& url)
{
    constexpr const char* folder = "/camera/";
    const std::size_t place = url.rfind(folder);
    return place == std::string::npos ? 0 : std::atoi(url.c_str() + place + 8);
}

nanoseconds wallTime()
{
    return std::chrono::system_clock::now().time_since_epoch();
}

}  // namespace

CameraConnection::CameraConnection(int descriptor, CannedMedia& media, Clock::time_point epoch,
                                   std::uint64_t random)
    : descriptor_(descriptor),
      media_(media),
      epoch_(epoch),
      video_(videoClockRate, 4 * random),
      audio_(audioClockRate, 4 * random + 2)
{
}

CameraConnection::~CameraConnection()
{
    close(descriptor_);
}

bool CameraConnection::onReadable()
{
    char bytes[16384];
    const ssize_t size = recv(descriptor_, bytes, sizeof bytes, 0);
    if (size <= 0)
    {
        return size < 0 && (errno == EAGAIN || errno == EINTR);
    }
    std::vector<Request> requests;
    bool good = reader_.feed(bytes, static_cast<std::size_t>(size), requests);
    for (const Request& request : requests)
    {
        good = good && answer(request);
    }
    return good;
}

bool CameraConnection::answer(const Request& request)
{
    if (request.method == "OPTIONS")
    {
        return reply(request, "200 OK",
                     "Public: OPTIONS, DESCRIBE, SETUP, PLAY, GET_PARAMETER, SET_PARAMETER, TEARDOWN\r\n");
    }
    if (request.method == "GET_PARAMETER" || request.method == "SET_PARAMETER")
    {
        return reply(request, "200 OK");
    }
    const int camera = cameraOf(request.url);
    if (camera < 1 || camera > media_.cameras)
    {
        return reply(request, "404 Not Found");
    }
    if (request.method == "DESCRIBE")
    {
        return describe(request);
    }
    if (request.method == "SETUP")
    {
        return setUp(request);
    }
    if (request.method == "PLAY")
    {
        camera_ = camera;
        return play(request, Clock::now());
    }
    if (request.method == "TEARDOWN")
    {
        plays_ = false;
        return reply(request, "200 OK") && false;
    }
    return reply(request, "501 Not Implemented");
}

bool CameraConnection::describe(const Request& request)
{
    std::string sdp =
        "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=canned\r\nc=IN IP4 0.0.0.0\r\nt=0 0\r\n"
        "a=control:*\r\na=range:npt=now-\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=fmtp:96 " +
        media_.video.formatParameters() + "\r\na=framerate:" + std::to_string(media_.framesASecond) +
        "\r\na=control:track1\r\n";
    if (media_.hasAudio)
    {
        sdp += "m=audio 0 RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\na=control:track2\r\n";
    }
    const std::string base = "Content-Base: " + request.url + "/\r\nContent-Type: application/sdp\r\n";
    return reply(request, "200 OK", base, sdp);
}

bool CameraConnection::setUp(const Request& request)
{
    const std::string transport(request.header("Transport"));
    const std::size_t place = transport.find("interleaved=");
    if (transport.find("RTP/AVP/TCP") == std::string::npos)
    {
        return reply(request, "461 Unsupported Transport");
    }
    const bool audio = request.url.find("track2") != std::string::npos;
    int rtp = audio ? 2 : 0;
    int rtcp = rtp + 1;
    if (place != std::string::npos)
    {
        std::sscanf(transport.c_str() + place, "interleaved=%d-%d", &rtp, &rtcp);
    }
    (audio ? audio_ : video_).setChannels(static_cast<std::uint8_t>(rtp), static_cast<std::uint8_t>(rtcp));
    (audio ? audioIsSetUp_ : videoIsSetUp_) = true;
    session_ = std::to_string(100000 + descriptor_);
    return reply(request, "200 OK",
                 "Transport: RTP/AVP/TCP;unicast;interleaved=" + std::to_string(rtp) + "-" +
                     std::to_string(rtcp) + "\r\n");
}

bool CameraConnection::play(const Request& request, Clock::time_point now)
{
    if (!videoIsSetUp_)
    {
        return reply(request, "455 Method Not Valid in This State");
    }
    if (!plays_)
    {
        frame_ = 0;
        const nanoseconds passed = now - nextDue();
        frame_ = std::max<std::int64_t>(0, passed * media_.framesASecond / std::chrono::seconds(1) + 1);
        nextReport_ = frame_;
        plays_ = true;
    }
    std::string url = request.url;
    url += url.back() == '/' ? "" : "/";
    std::string info = "RTP-Info: url=" + url + "track1;seq=" + std::to_string(video_.nextSequence()) +
                       ";rtptime=" + std::to_string(video_.timestamp(captureOf(frame_)));
    if (audioIsSetUp_)
    {
        info += ",url=" + url + "track2;seq=" + std::to_string(audio_.nextSequence()) +
                ";rtptime=" + std::to_string(audio_.timestamp(captureOf(frame_)));
    }
    return reply(request, "200 OK", "Range: npt=now-\r\n" + info + "\r\n");
}

bool CameraConnection::reply(const Request& request, const char* status, const std::string& headers,
                             const std::string& body)
{
    std::string text = std::string("RTSP/1.0 ") + status +
                       "\r\nCSeq: " + std::string(request.header("CSeq")) + "\r\n" + headers;
    text += session_.empty() ? "" : "Session: " + session_ + ";timeout=60\r\n";
    text += body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n";
    text += "\r\n" + body;
    return send(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

nanoseconds CameraConnection::captureOf(std::int64_t frame) const
{
    return nanoseconds(std::chrono::seconds(1)) * frame / media_.framesASecond;
}

CameraConnection::Clock::time_point CameraConnection::nextDue() const
{
    // The golden ratio spreads any number of cameras evenly over the time of the canned video.
    const double turn = std::fmod(0.6180339887498949 * camera_, 1.0);
    const nanoseconds length = captureOf(static_cast<std::int64_t>(media_.video.units.size()));
    const nanoseconds offset(static_cast<std::int64_t>(turn * static_cast<double>(length.count())));
    return epoch_ - offset + captureOf(frame_);
}

bool CameraConnection::sendDue(Clock::time_point now)
{
    const Clock::time_point due = nextDue();
    const nanoseconds capture = captureOf(frame_);
    CannedUnit& unit = media_.video.units[static_cast<std::size_t>(frame_) % media_.video.units.size()];
    ++counts_.units;
    counts_.late += now - due >= captureOf(1) ? 1 : 0;
    if (frame_ >= nextReport_)
    {
        nextReport_ = frame_ + std::int64_t{secondsAReport} * media_.framesASecond;
        if (!sendReports(capture + (now - due)))
        {
            return false;
        }
    }
    ++frame_;
    video_.stamp(unit, capture);
    if (audioIsSetUp_)
    {
        audio_.stamp(media_.tone, capture);
    }
    if (unsent_.size() > maxUnsent)
    {
        ++counts_.dropped;
        return true;
    }
    return send(unit.bytes.data(), unit.bytes.size()) &&
           (!audioIsSetUp_ || send(media_.tone.bytes.data(), media_.tone.bytes.size()));
}

bool CameraConnection::sendReports(nanoseconds capture)
{
    Bytes reports = video_.report(capture, wallTime());
    if (audioIsSetUp_)
    {
        const Bytes audio = audio_.report(capture, wallTime());
        reports.insert(reports.end(), audio.begin(), audio.end());
    }
    return send(reports.data(), reports.size());
}

bool CameraConnection::send(const std::uint8_t* data, std::size_t size)
{
    ssize_t sent = 0;
    if (unsent_.empty())
    {
        sent = ::send(descriptor_, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EAGAIN && errno != EINTR)
        {
            return false;
        }
        sent = std::max<ssize_t>(sent, 0);
    }
    unsent_.insert(unsent_.end(), data + sent, data + size);
    return true;
}

bool CameraConnection::onWritable()
{
    if (unsent_.empty())
    {
        return true;
    }
    const ssize_t sent = ::send(descriptor_, unsent_.data(), unsent_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0)
    {
        return errno == EAGAIN || errno == EINTR;
    }
    unsent_.erase(unsent_.begin(), unsent_.begin() + sent);
    return true;
}

}  // namespace rtsporigin

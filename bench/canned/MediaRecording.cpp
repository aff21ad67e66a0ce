#include "bench/canned/MediaRecording.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "bench/load/FrameStart.h"
#include "bench/load/RtspReader.h"
#include "bench/load/SessionDescription.h"

namespace rtspcanned
{
namespace
{

using Clock = std::chrono::steady_clock;

constexpr std::size_t rtpHeaderSize = 12;

std::uint32_t read32(const std::uint8_t* at)
{
    return std::uint32_t{at[0]} << 24 | std::uint32_t{at[1]} << 16 | std::uint32_t{at[2]} << 8 | at[3];
}

/// One blocking RTSP connection.
class Recording : private rtspload::RtspReaderSink
{
public:
    Recording(const rtspload::RtspUrl& url, double seconds) : url_(url), seconds_(seconds)
    {
        const timeval patience{1, 0};
        socket_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (socket_ < 0 || setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) != 0 ||
            connect(socket_, reinterpret_cast<const sockaddr*>(&url.address), sizeof url.address) != 0)
        {
            close(socket_);
            throw std::runtime_error(url.text + " cannot be reached");
        }
    }
    ~Recording() override
    {
        close(socket_);
    }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    CannedMedia record()
    {
        end_ = Clock::now() + std::chrono::seconds(10);
        request("DESCRIBE", url_.text, "Accept: application/sdp\r\n");
        describe();
        request("SETUP", track_.url, "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n");
        request("PLAY", base_, "");
        end_ += std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(2 * seconds_));
        receiveUntil([this] { return complete_; }, "two key frames");
        return std::move(media_);
    }

private:
    void request(const std::string& method, const std::string& url, const std::string& headers)
    {
        answered_ = false;
        std::string text =
            method + " " + url + " RTSP/1.0\r\nCSeq: " + std::to_string(++cseq_) + "\r\n" + headers;
        text += session_.empty() ? "\r\n" : "Session: " + session_ + "\r\n\r\n";
        if (send(socket_, text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size()))
        {
            throw std::runtime_error(method + " could not be sent");
        }
        receiveUntil([this] { return answered_; }, "an answer to " + method);
    }

    void receiveUntil(const std::function<bool()>& done, const std::string& what)
    {
        std::array<char, 65'536> buffer;
        while (!done())
        {
            const ssize_t size = recv(socket_, buffer.data(), buffer.size(), 0);
            if (size == 0 || Clock::now() > end_ ||
                (size > 0 && !reader_.feed(buffer.data(), static_cast<std::size_t>(size), *this)))
            {
                throw std::runtime_error(url_.text + " did not send " + what);
            }
        }
    }

    void describe()
    {
        const auto described = rtspload::SessionDescription::parse(media_.description, base_);
        for (const rtspload::DescribedTrack& track : described.tracks)
        {
            if (track.media == "video" && track_.url.empty())
            {
                track_ = track;
            }
        }
        base_ = described.url;
        if (track_.url.compare(0, base_.size(), base_) != 0 || track_.url.size() <= base_.size())
        {
            throw std::runtime_error(url_.text + " describes no video below its own URL");
        }
        media_.track = track_.url.substr(base_.size());
        media_.track.erase(0, media_.track.front() == '/' ? 1 : 0);
    }

    void onReply(const rtspload::RtspReply& reply) override
    {
        if (reply.status != 200)
        {
            throw std::runtime_error(url_.text + " answered " + std::to_string(reply.status));
        }
        answered_ = true;
        const std::string_view session = reply.header("Session");
        session_ = std::string(session.substr(0, session.find(';')));
        if (!reply.body.empty())
        {
            const std::string_view base = reply.header("Content-Base");
            base_ = base.empty() ? url_.text : std::string(base);
            media_.description = std::string(reply.body);
        }
    }

    void onInterleaved(std::uint8_t channel, const std::uint8_t* data, std::size_t size) override
    {
        if (channel != 0 || size <= rtpHeaderSize || complete_)
        {
            return;
        }
        const std::uint32_t timestamp = read32(data + 4);
        if (timestamp_ != timestamp)
        {
            finishUnit();
            timestamp_ = timestamp;
        }
        unit_.append(data, size);
        unit_.keyFrame = unit_.keyFrame ||
                         rtspload::frameStart(track_.encoding, data + rtpHeaderSize, size - rtpHeaderSize) ==
                             rtspload::FrameStart::keyFrame;
        media_.ssrc = read32(data + 8);
    }

    /// The next unit begins.
    void finishUnit()
    {
        if (unit_.packets.empty())
        {
            return;
        }
        if (unit_.keyFrame && media_.units.empty())
        {
            first_ = *timestamp_;
        }
        const auto sinceFirst = [this](std::uint32_t timestamp) {
            return std::chrono::nanoseconds(std::int64_t{timestamp - first_} * 1'000'000'000 /
                                            media_.clockRate);
        };
        if (unit_.keyFrame && !media_.units.empty() &&
            sinceFirst(*timestamp_) >= std::chrono::duration<double>(seconds_))
        {
            media_.length = sinceFirst(*timestamp_);
            complete_ = true;
        }
        else if (unit_.keyFrame || !media_.units.empty())
        {
            unit_.time = sinceFirst(*timestamp_);
            media_.units.push_back(std::move(unit_));
        }
        unit_ = {};
    }

    const rtspload::RtspUrl& url_;
    const double seconds_;
    int socket_ = -1;
    Clock::time_point end_;
    rtspload::RtspReader reader_;
    std::string base_;
    rtspload::DescribedTrack track_;
    std::string session_;
    int cseq_ = 0;
    bool answered_ = false;
    bool complete_ = false;
    CannedMedia media_;
    CannedUnit unit_;
    std::optional<std::uint32_t> timestamp_;
    std::uint32_t first_ = 0;
};

}  // namespace

CannedMedia recordFrom(const rtspload::RtspUrl& url, double seconds)
{
    return Recording(url, seconds).record();
}

}  // namespace rtspcanned

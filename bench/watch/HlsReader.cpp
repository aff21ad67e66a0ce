#include "bench/watch/HlsReader.h"

#include <chrono>
#include <cstdlib>
#include <utility>

namespace watchload
{
namespace
{

constexpr int success = 200;

/// The text after the last sign, up to a quote or the end of the line.
std::string lastAfter(std::string_view text, std::string_view sign)
{
    const std::size_t at = text.rfind(sign);
    if (at == std::string_view::npos)
    {
        return {};
    }
    const std::string_view rest = text.substr(at + sign.size());
    return std::string(rest.substr(0, rest.find_first_of("\"\n")));
}

std::size_t countOf(std::string_view text, std::string_view sign)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(sign); at != std::string_view::npos; at = text.find(sign, at + 1))
    {
        ++count;
    }
    return count;
}

/// Seconds since the capture that the last `prft` box names (ISO/IEC 14496-12, section 8.16.5).
double latencyOf(std::string_view part)
{
    const std::size_t at = part.rfind("prft");
    constexpr std::size_t head = 12;  // type, version, flags and track
    if (at == std::string_view::npos || part.size() < at + head + 8)
    {
        return -1;
    }
    std::uint64_t ntp = 0;
    for (std::size_t i = 0; i < 8; ++i)
    {
        ntp = ntp << 8U | static_cast<unsigned char>(part[at + head + i]);
    }
    constexpr double from1900To1970 = 2208988800.0;
    const double captured = static_cast<double>(ntp) / 4294967296.0 - from1900To1970;
    const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
    return now.count() - captured;
}

}  // namespace

class HlsReader::Connection final : public HttpClient
{
public:
    using Take = std::function<void(int status, std::string_view body)>;

    Connection(const Place& place, rtspload::Poller& poller, Take take)
        : HttpClient(place, poller), take_(std::move(take))
    {
    }

protected:
    void onReply(int status, std::string_view body) override
    {
        take_(status, body);
    }
    void onEnd() override
    {
        if (!std::exchange(ended_, true))
        {
            take_(0, {});
        }
    }

private:
    const Take take_;
    bool ended_ = false;
};

HlsReader::HlsReader(const Place& place, rtspload::Poller& poller, std::string folder, HlsCount& count)
    : folder_(std::move(folder)),
      count_(count),
      playlists_(std::make_unique<Connection>(
          place, poller, [this](int status, std::string_view body) { onPlaylist(status, body); })),
      parts_(std::make_unique<Connection>(
          place, poller, [this](int status, std::string_view body) { onPart(status, body); }))
{
    playlists_->get(folder_ + "live.m3u8");
}

HlsReader::~HlsReader() = default;

void HlsReader::onPlaylist(int status, std::string_view body)
{
    if (status != success)
    {
        ++count_.failures;
        if (status != 0)
        {
            playlists_->get(folder_ + "live.m3u8");
        }
        return;
    }
    ++count_.playlists;
    const std::size_t first = std::strtoull(lastAfter(body, "MEDIA-SEQUENCE:").c_str(), nullptr, 10);
    segment_ = first + countOf(body, "#EXTINF:");
    const std::size_t last = body.rfind("#EXTINF:");
    part_ = countOf(body.substr(last == std::string_view::npos ? 0 : last), "#EXT-X-PART:");
    hint_ = lastAfter(body, "PRELOAD-HINT:TYPE=PART,URI=\"");
    load();
    reload();
}

void HlsReader::reload()
{
    playlists_->get(folder_ + "live.m3u8?_HLS_msn=" + std::to_string(segment_) +
                    "&_HLS_part=" + std::to_string(part_));
}

void HlsReader::load()
{
    if (!loading_ && !hint_.empty())
    {
        loading_ = true;
        parts_->get(folder_ + std::exchange(hint_, {}));
    }
}

void HlsReader::onPart(int status, std::string_view body)
{
    loading_ = false;
    if (status != success)
    {
        ++count_.failures;
    }
    else
    {
        ++count_.parts;
        count_.bytes += body.size();
        count_.latencies.push_back(latencyOf(body));
    }
    if (status != 0)
    {
        load();
    }
}

}  // namespace watchload

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bench/watch/HttpClient.h"

namespace watchload
{

/// What readers received.
struct HlsCount
{
    std::uint64_t playlists = 0;
    std::uint64_t parts = 0;
    std::uint64_t bytes = 0;
    std::uint64_t failures = 0;  ///< replies other than 200, and connections that ended
    std::vector<double>
        latencies;  ///< from the capture of a part's last frame to the part's arrival, seconds
};

/// A reader of low-latency HLS: reloads the playlist, blocking, and loads the part that it hints at, each on a
/// connection of its own. Threads: one.
class HlsReader
{
public:
    /// \param folder  of the stream, such as "/api/v1/cameras/1/streams/0/hls/"
    /// \param count   outlives the reader
    HlsReader(const Place& place, rtspload::Poller& poller, std::string folder, HlsCount& count);
    ~HlsReader();
    HlsReader(const HlsReader&) = delete;
    HlsReader& operator=(const HlsReader&) = delete;

private:
    class Connection;

    void onPlaylist(int status, std::string_view body);
    void onPart(int status, std::string_view body);
    void reload();
    void load();

    const std::string folder_;
    HlsCount& count_;
    std::unique_ptr<Connection> playlists_;
    std::unique_ptr<Connection> parts_;
    std::uint64_t segment_ = 0;  // to be asked for next
    std::uint64_t part_ = 0;
    std::string hint_;
    bool loading_ = false;
};

}  // namespace watchload

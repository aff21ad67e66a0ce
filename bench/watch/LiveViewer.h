#pragma once

#include <cstdint>
#include <string_view>

#include "bench/watch/HttpClient.h"

namespace watchload
{

/// What viewers received.
struct LiveCount
{
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    int ended = 0;  ///< viewers whom the server refused or ended
};

/// A viewer of a stream through a WebSocket: counts its messages. Threads: one.
class LiveViewer final : public HttpClient
{
public:
    /// \param count  outlives the viewer
    LiveViewer(const Place& place, rtspload::Poller& poller, const std::string& target, LiveCount& count);

protected:
    void onReply(int status, std::string_view body) override;
    void onBytes(std::string_view bytes) override;
    void onEnd() override;

private:
    LiveCount& count_;
    std::uint64_t skip_ = 0;  // bytes of the message
    std::string head_;        // of the next one, as far as it came
    bool ended_ = false;
};

}  // namespace watchload

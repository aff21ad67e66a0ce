#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/load/ClientSession.h"
#include "bench/load/LoadOptions.h"
#include "bench/load/Report.h"

namespace rtspload
{

/// Many viewers that all stay: judges what each of them receives and what they cost the server.
class HoldRun : private SessionListener
{
public:
    explicit HoldRun(const LoadOptions& options);

    /// \returns true when nothing was wrong with any viewer
    bool run(Report& report);

private:
    void onPlaying(ClientSession& session) override;
    void onPacket(ClientSession& session, FrameStart frame) override;
    void onEnded(ClientSession& session) override;
    void onFailed(ClientSession& session, const std::string& why) override;

    /// Starts viewers up to `count` and waits until all of them play or failed.
    void openUpTo(std::size_t count);
    void receiveFor(double seconds);
    void endAll();
    std::uint64_t packetsOfAll() const;
    std::size_t settled() const
    {
        return playing_ + failed_;
    }

    const LoadOptions& options_;
    Poller poller_;
    std::vector<std::unique_ptr<ClientSession>> sessions_;
    std::map<const ClientSession*, bool> keyFrameSeen_;
    std::size_t opened_ = 0;
    std::size_t playing_ = 0;
    std::size_t failed_ = 0;
    std::size_t ended_ = 0;
    std::int64_t nextKeepAliveNs_ = 0;
    std::map<std::string, int> reasons_;
    Latencies firstPacket_;
    Latencies keyFrame_;
    Latencies late_;
};

}  // namespace rtspload

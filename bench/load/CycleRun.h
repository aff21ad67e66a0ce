#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/load/ClientSession.h"
#include "bench/load/LoadOptions.h"
#include "bench/load/Report.h"

namespace rtspload
{

/// Many clients that go through whole sessions one after the other, as fast as the server lets them.
class CycleRun : private SessionListener
{
public:
    explicit CycleRun(const LoadOptions& options);

    /// \returns true when no cycle failed
    bool run(Report& report);

private:
    struct Cycle
    {
        bool firstPacketSeen = false;
        bool done = false;  ///< the event that the cycle waits for has occurred
    };

    void onPlaying(ClientSession& session) override;
    void onPacket(ClientSession& session, FrameStart frame) override;
    void onEnded(ClientSession& session) override;
    void onFailed(ClientSession& session, const std::string& why) override;
    bool enough() const;
    void startCycle(ClientSession& session);

    const LoadOptions& options_;
    Poller poller_;
    std::vector<std::unique_ptr<ClientSession>> sessions_;
    std::map<const ClientSession*, Cycle> cycles_;
    const ClientSession* warm_ = nullptr;
    bool ending_ = false;
    std::size_t active_ = 0;
    std::int64_t completed_ = 0;
    std::int64_t failed_ = 0;
    std::map<std::string, int> reasons_;
    Latencies firstPacket_;
    Latencies keyFrame_;
};

}  // namespace rtspload

#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "refhost/capture/SourceRun.h"

namespace refhost
{

/// A source's run that has one track, or fails, at once.
class ScriptedRun : public SourceRun
{
public:
    struct Outcome
    {
        std::string failure;      ///< empty: it is described
        bool otherMeans = false;  ///< it failed and may be readable by other means
        std::shared_ptr<std::atomic<std::uint64_t>> packets{};  ///< so far; null: none
        SourceFailure::Cause cause = SourceFailure::Cause::other;
    };

    ScriptedRun(Setup setup, Outcome outcome) : setup_(std::move(setup)), outcome_(std::move(outcome))
    {
        if (outcome_.failure.empty())
        {
            setup_.events.described();
        }
        else
        {
            setup_.events.ended({outcome_.failure, outcome_.cause});
        }
    }

    void setTaps(const Taps& /*taps*/) override {}
    void requestKeyFrame() override {}

    std::uint64_t packetCount() const override
    {
        return outcome_.packets ? outcome_.packets->load() : 0;
    }

    bool mayWorkByAnotherTransport() const override
    {
        return outcome_.otherMeans;
    }

    bool describe(bool /*partial*/, std::vector<SubMediaInfo>& tracks) const override
    {
        SubMediaInfo track;
        track.trackId = "trackID=0";
        tracks = {track};
        return outcome_.failure.empty();
    }

    Clock::duration busyFor() const override
    {
        return Clock::duration(0);
    }

    void stop() override
    {
        if (setup_.events.stopped)
        {
            setup_.events.stopped();
        }
    }

    void mute() override
    {
        setup_.events = Events();
    }

    bool awaitEnd(Clock::time_point /*deadline*/) const override
    {
        return true;
    }

private:
    Setup setup_;
    const Outcome outcome_;
};

}  // namespace refhost

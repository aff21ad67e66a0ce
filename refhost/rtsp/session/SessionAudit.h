#pragma once
// Tested by tests/refhost/rtsp/connection/RtspServerAudit_test.cpp.

#include <cstdint>
#include <memory>
#include <string_view>

#include "refhost/base/Times.h"
#include "refhost/rtp/RtpTransport.h"
#include "refhost/rtsp/session/SessionOwner.h"

namespace refhost
{

/// The audit lines of one session: its start, and its end with what it was sent. Threads: one at a time.
class SessionAudit
{
public:
    /// Writes the start; does nothing the second time.
    /// \param transport  a constant word
    void started(const SessionOwner& owner, std::string_view url, std::string_view transport);

    /// Counts what was sent over the transport of a track that ends.
    void count(const RtpTransport& transport);

    /// Writes the end of a session that started; does nothing the second time.
    void ended(const SessionOwner& owner);

    /// Of the first track; empty before started().
    std::string_view transport() const
    {
        return transport_;
    }
    /// What was sent over the tracks that ended.
    std::uint64_t bytes() const
    {
        return bytes_;
    }
    /// Packets of these that the client reported as lost.
    std::uint64_t lost() const
    {
        return lost_;
    }

private:
    std::unique_ptr<char[]>
        url_;  // null unless started; a string would take four times as much of each session
    std::string_view transport_;
    std::chrono::steady_clock::time_point since_;
    std::uint64_t bytes_ = 0;
    std::uint64_t lost_ = 0;
};

}  // namespace refhost

#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "refhost/rtp/RtpTransport.h"
#include "refhost/rtp/multicast/MulticastPool.h"
#include "support/SafePointer.h"

namespace refhost
{

/// Sends tracks of camera streams to multicast groups, once for all members, and takes what members report.
///
/// A group is in use, and joined for the members' RTCP, as long as a transport of one of its tracks lives.
/// What is sent comes back to members on the same machine too. Transports may outlive this object.
/// Threads: any.
class MulticastServer
{
public:
    struct Options
    {
        MulticastPool::Settings pool;
        int ttl = 1;            ///< routers that a packet may pass, plus one
        std::string interface;  ///< name or IPv4 address of the interface to send through; empty: see below
        std::string listen;     ///< where the interface is empty: the address whose interface it is. The
                                ///< wildcards, and one that no interface has, leave it to the system
        bool segmentationOffload = true;
        /// How the log names a stream; empty: by its numbers.
        std::function<std::string(MulticastPool::Stream)> nameOf;
    };

    /// \returns null with `error` set when there is no such interface or no socket
    static std::shared_ptr<MulticastServer> open(const Options& options, std::string& error);
    ~MulticastServer();

    /// Where a stream would be sent to, or is.
    /// \returns false when every group is in use by others
    bool describe(MulticastPool::Stream stream, MulticastDestination& out);

    /// Makes one member's handle to the transport of a track. All handles of one track send to the same ports; use
    /// one at a time. Transport kind 3.
    /// \param track    number within the group, from 0
    /// \param[out] out  the transport, where it was made
    /// \param[out] destination  where it sends to, likewise
    /// \returns false, with the reason in the log, when every group is in use by others, the group has no
    ///          ports for such a track, or the system has no way for multicast
    bool makeTransport(MulticastPool::Stream stream, int track, std::optional<SafePointer<RtpTransport>>& out,
                       MulticastDestination& destination);

    /// A descriptor to watch for reading, and what to call when it is readable. A call reads a bounded number
    /// of packets; what is left makes the descriptor readable again.
    int descriptor() const;
    void onReadable();

    /// How many groups are in use.
    std::size_t groupsTaken() const;

private:
    MulticastServer();

    struct Impl;
    std::shared_ptr<Impl> impl_;
};

}  // namespace refhost

#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "refhost/rtp/MulticastPool.h"
#include "refhost/rtp/RtpTransport.h"
#include "support/SafePointer.h"

namespace refhost
{

/// What clients must be told of a track that is sent to a group.
struct MulticastWay
{
    MulticastGroup group;
    int track = 0;  ///< number within the group, from 0
    int ttl = 1;
};

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
    };

    /// \returns null with `error` set when there is no such interface or no socket
    static std::shared_ptr<MulticastServer> open(const Options& options, std::string& error);
    ~MulticastServer();

    /// Where a track would be sent to, or is.
    /// \returns false when every group is in use, or for a track that a group has no ports for
    bool describe(MulticastPool::Stream stream, int track, MulticastWay& out);

    enum class Result
    {
        made,
        noGroup,      ///< every group is in use, or the group has no ports for such a track
        noInterface,  ///< the system has no way for multicast; logged
    };

    /// Makes one member's handle to the way of a track. All of one track send to the same ports; one is
    /// used at a time. Transport kind 3.
    /// \param out  assigned when made
    Result makeTransport(MulticastPool::Stream stream, int track,
                         std::unique_ptr<SafePointer<RtpTransport>>& out, MulticastWay& way);

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

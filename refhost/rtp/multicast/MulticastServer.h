#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "refhost/rtp/ProtectedSender.h"
#include "refhost/rtp/RtpTransport.h"
#include "refhost/rtp/multicast/MulticastPool.h"
#include "support/SafePointer.h"

namespace refhost
{

/// Sends tracks of camera streams to multicast groups, once for all members, and receives the members'
/// reports.
///
/// A group is in use, and joined for the members' RTCP, while a transport of one of its tracks exists.
/// Members on the same machine receive too. Transports may outlive this object. Threads: any.
class MulticastServer
{
public:
    struct Options
    {
        MulticastPool::Settings pool;
        int ttl = 1;            ///< routers that a packet may pass, plus one
        std::string interface;  ///< name or IPv4 address of the interface to send through; empty: see below
        std::string
            listen;  ///< without `interface`: an address of the interface. A wildcard, or an address of none, leaves it to the system
        bool segmentationOffload = true;
        /// A stream's name in the log; empty: its numbers.
        std::function<std::string(MulticastPool::Stream)> nameOf;
    };

    /// \returns null with `error` set when there is no such interface or no socket
    static std::shared_ptr<MulticastServer> open(const Options& options, std::string& error);
    ~MulticastServer();

    /// The destination of a stream, whether it is sent or not.
    /// \returns false when other streams use every group
    bool describe(MulticastPool::Stream stream, MulticastDestination& out);

    /// Makes one member's handle to the transport of a track. All handles of a track send to the same ports;
    /// send through one of them at a time. Transport kind 3.
    /// \param track    number within the group, from 0
    /// \param[out] out  the transport, on success
    /// \param[out] destination  where it sends to, on success
    /// \param protection  encrypts the track, the same for all members; null: it is not encrypted
    /// \returns false, with the reason in the log, when other streams use every group, the group has no ports
    ///          for the track, or the system has no route for multicast
    bool makeTransport(MulticastPool::Stream stream, int track, std::optional<SafePointer<RtpTransport>>& out,
                       MulticastDestination& destination,
                       const std::shared_ptr<ProtectedSender>& protection = nullptr);

    /// A descriptor to watch for reading; call onReadable() when it is readable. A call reads a bounded
    /// number of packets; the descriptor stays readable while more wait.
    int descriptor() const;
    void onReadable();

    /// Groups in use.
    std::size_t groupsTaken() const;

private:
    MulticastServer();

    struct Impl;
    std::shared_ptr<Impl> impl_;
};

}  // namespace refhost

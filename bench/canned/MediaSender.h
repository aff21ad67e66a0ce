#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <string_view>
#include <vector>

#include "bench/canned/CannedMedia.h"

namespace rtspcanned
{

/// Sends units over UDP with segmentation (GSO), or over TCP with one write each. Threads: one.
class MediaSender
{
public:
    /// Prepares the messages of `unit`, which outlives the next calls; its headers may change.
    void load(CannedUnit& unit);

    /// Sends the loaded unit over UDP, and looks at nothing.
    /// \param client  null: the socket is connected
    void sendDatagrams(int udp, const sockaddr_in* client);
    /// Sends the loaded unit over TCP, after `before`.
    /// \returns false when it was not taken whole: the connection is of no use any more
    bool sendFramed(int tcp, std::string_view before);

private:
    struct alignas(cmsghdr) Control
    {
        unsigned char bytes[CMSG_SPACE(sizeof(std::uint16_t))];
    };

    CannedUnit* unit_ = nullptr;
    std::vector<mmsghdr> messages_;
    std::vector<iovec> vectors_;
    std::vector<Control> controls_;
};

}  // namespace rtspcanned

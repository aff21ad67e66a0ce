#pragma once
// Tested by tests/refhost/http/TalkRoute_test.cpp.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "hostapi/device/IConnection.h"
#include "refhost/base/SocketAddress.h"
#include "support/SafePointer.h"

namespace refhost
{

/// Talk-back of a client that sends plain audio instead of RTP: PCMU (ITU-T G.711), 8 kHz, one channel, in blocks of any
/// size. It has a session of its own with the talk-back manager, like that of an RTSP client.
///
/// The talk-back worker notices a new session only after a while, in which what it received would become too old to be
/// played: until then the newest `maxWaiting` bytes are kept here.
///
/// Bounds: those, those of every talk-back session (TalkReceiveQueue, TalkReception), and less than one packet.
/// Life: the session exists from start() until the object ends. Threads: one at a time.
class PlainTalk
{
public:
    static constexpr int sampleRate = 8000;
    /// Bytes of a packet: 20 ms.
    static constexpr std::size_t packetBytes = 160;
    /// As much as an output takes at once: 200 ms.
    static constexpr std::size_t maxWaiting = 10 * packetBytes;

    /// Who talks.
    struct Client
    {
        SocketAddress address;
        std::string user;  ///< empty without users
        std::string url;   ///< for the audit
    };

    explicit PlainTalk(const Client& client);
    /// Ends the session.
    ~PlainTalk();
    PlainTalk(const PlainTalk&) = delete;
    PlainTalk& operator=(const PlainTalk&) = delete;

    /// Makes the session, which receives from now on.
    /// \returns 0, or the manager's status: hostTalkBackBusy where the policy or a limit refuses another session,
    ///          hostTalkBackUnavailable where there is no talk-back
    int start();

    /// Takes audio. Requires: start() succeeded.
    void send(std::string_view audio);
    /// Bytes that wait for the worker.
    std::size_t waiting() const
    {
        return waiting_.size();
    }

    /// Whether the manager still has the session.
    bool isOpen() const;

    /// Whether this client is audible now, and otherwise who is.
    struct Floor
    {
        bool audible = false;
        std::string by;  ///< the user who is audible instead; empty: nobody, or one without a name

        bool operator==(const Floor& other) const
        {
            return audible == other.audible && by == other.by;
        }
    };
    Floor floor() const;

private:
    class Transport;

    static constexpr std::size_t headerBytes = 12;  // RTP's (RFC 3550, section 5.1)

    explicit PlainTalk(std::string name, Transport* transport);
    void packetize(std::string_view audio);
    void sendPacket();

    const std::string sessionId_;
    const std::string name_;
    const SafePointer<IConnection> connection_;
    Transport& transport_;   // of connection_
    bool received_ = false;  // the worker receives
    std::string waiting_;
    std::array<std::uint8_t, headerBytes + packetBytes> packet_{};
    std::size_t filled_ = headerBytes;  // of packet_
    std::uint16_t sequence_ = 0;
    std::uint32_t timestamp_ = 0;
};

}  // namespace refhost

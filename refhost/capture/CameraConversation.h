#pragma once
// Tested by tests/refhost/ingest/CameraRelay_test.cpp.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "refhost/base/Descriptor.h"
#include "refhost/capture/CameraLogin.h"
#include "refhost/capture/CameraMessages.h"

namespace refhost
{

/// One RTSP connection to a camera, with its media interleaved (RFC 2326). Every wait has a deadline and ends
/// at once with stop().
///
/// Threads: one at a time, but for stop(), which any may call.
class CameraConversation
{
public:
    using Clock = std::chrono::steady_clock;
    using Headers = std::vector<std::pair<std::string, std::string>>;
    /// Called with each interleaved packet, from within request() and receive().
    using OnPacket = std::function<void(int channel, const std::uint8_t* data, std::size_t size)>;

    explicit CameraConversation(OnPacket onPacket);
    ~CameraConversation();
    CameraConversation(const CameraConversation&) = delete;
    CameraConversation& operator=(const CameraConversation&) = delete;

    /// Ends all waiting, now and later.
    void stop();

    /// Connects, over again where there was a connection.
    /// \param[out] error  why not
    bool connect(const std::string& host, int port, CameraLogin login, std::string& error);

    /// Sends a request and waits for its answer; logs in where the camera wants it.
    /// \param[out] answer  of any status
    /// \returns false with `error` set when there was none
    bool request(const std::string& method, const std::string& uri, const Headers& headers,
                 CameraMessage& answer, std::string& error);

    /// Sends a request whose answer nobody waits for.
    bool sendRequest(const std::string& method, const std::string& uri, const Headers& headers,
                     std::string& error);

    /// False when the connection has ended, true when request() failed only because the camera did not
    /// answer.
    bool isOpen() const
    {
        return open_;
    }

    bool sendPacket(int channel, const std::uint8_t* data, std::size_t size, std::string& error);

    /// Takes what comes until `deadline`.
    /// \returns false with `error` set when the connection has ended
    bool receive(Clock::time_point deadline, std::string& error);

private:
    enum class Wait
    {
        ready,
        timeout,
        stopped
    };

    Wait waitFor(short events, Clock::time_point deadline) const;
    bool connectTo(const void* address, unsigned size, int family, Clock::time_point deadline);
    bool send(const char* data, std::size_t size, std::string& error);
    bool readMore(Clock::time_point deadline, bool& timedOut, std::string& error);
    bool takeNext(bool& answered, std::string& error);
    void close();

    const OnPacket onPacket_;
    const Descriptor stopDescriptor_;
    Descriptor socket_;
    bool open_ = false;
    CameraLogin login_{"", ""};
    CameraMessages messages_;
    unsigned sequence_ = 0;
};

}  // namespace refhost

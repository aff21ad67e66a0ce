#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench/load/LoadOptions.h"
#include "bench/load/Poller.h"
#include "bench/load/RtspReader.h"
#include "bench/load/RtspUrl.h"
#include "bench/load/SessionDescription.h"
#include "bench/load/SilenceWatch.h"
#include "bench/load/SrtpReader.h"
#include "bench/load/TlsClient.h"
#include "bench/load/TrackWatch.h"
#include "bench/load/UdpPair.h"

namespace rtspload
{

enum class Transport
{
    udp,
    tcp
};

class ClientSession;

/// How a session takes encrypted media.
enum class Srtp
{
    none,     ///< RTP/AVP
    headers,  ///< RTP/SAVP; packets are not opened
    opened    ///< RTP/SAVP; every packet is opened
};

/// \param number  of the session; opening all packets of all of them would cost more than the server does
inline Srtp srtpOf(const LoadOptions& options, int number)
{
    constexpr int openedEach = 16;
    if (!options.srtp)
    {
        return Srtp::none;
    }
    return number % openedEach == 0 ? Srtp::opened : Srtp::headers;
}

/// Receives the events of a session.
class SessionListener
{
public:
    virtual ~SessionListener() = default;
    /// PLAY was answered.
    virtual void onPlaying(ClientSession&) {}
    /// An RTP packet was received; the first one has `packets() == 1`. May be called before onPlaying().
    virtual void onPacket(ClientSession&, FrameStart) {}
    /// TEARDOWN was answered; the connection is closed, start() may be called.
    virtual void onEnded(ClientSession& session) = 0;
    /// The session failed; the connection is closed.
    virtual void onFailed(ClientSession& session, const std::string& why) = 0;
};

/// One client: connects, sends OPTIONS, DESCRIBE, SETUP for each track and PLAY, one after the other,
/// receives, and ends with TEARDOWN. Can be started again and again; its UDP ports stay the same.
class ClientSession : private PollTarget, private RtspReaderSink, private UdpPairSink
{
public:
    /// \param tls          over TLS
    /// \param srtp         RTP/SAVP
    /// \param wideBuffers  ask for large receive buffers, so that nothing is lost on the client's side
    ClientSession(Poller& poller, const RtspUrl& url, Transport transport, bool allTracks, bool wideBuffers,
                  bool tls, Srtp srtp, SessionListener& listener);
    ~ClientSession() override;
    ClientSession(const ClientSession&) = delete;
    ClientSession& operator=(const ClientSession&) = delete;

    /// Connects and sends the first request. Failures are reported to the listener.
    void start();

    /// Sends TEARDOWN; after onPlaying().
    void teardown();

    /// Sends OPTIONS with the session's id, which keeps it alive.
    void keepAlive();

    bool playing() const
    {
        return state_ == State::playing;
    }
    Transport transport() const
    {
        return transport_;
    }
    /// When PLAY was sent, nanoseconds of nowNs().
    std::int64_t playSentNs() const
    {
        return playSentNs_;
    }
    /// RTP packets of all tracks.
    std::uint64_t packets() const
    {
        return packets_;
    }
    /// How long no packet of any track came.
    SilenceWatch& silence()
    {
        return silence_;
    }
    /// Whether sender reports can be read.
    bool readsReports() const
    {
        return srtp_ != Srtp::headers;
    }
    const std::vector<TrackWatch>& tracks() const
    {
        return watches_;
    }

private:
    enum class State
    {
        idle,
        options,
        describe,
        setup,
        play,
        playing,
        teardown
    };

    void onReadable() override;
    void onReply(const RtspReply& reply) override;
    void onInterleaved(std::uint8_t channel, const std::uint8_t* data, std::size_t size) override;
    void onUdp(std::size_t track, bool rtcp, const std::uint8_t* data, std::size_t size) override;

    ssize_t receive(char* bytes, std::size_t size);
    bool sendAll(const std::string& text);
    void request(const char* method, const std::string& url, const std::string& headers);
    void requestSetup();
    void takeDescription(const RtspReply& reply);
    void takeSetup(const RtspReply& reply);
    void takePlay(const RtspReply& reply);
    bool startDecryption();
    void takeMedia(std::size_t track, bool rtcp, const std::uint8_t* data, std::size_t size);
    void fail(const std::string& why);
    void closeConnection();

    Poller& poller_;
    const RtspUrl& url_;
    Transport transport_;
    bool allTracks_;
    bool wideBuffers_;
    bool tls_;
    Srtp srtp_;
    SessionListener& listener_;

    int descriptor_ = -1;
    TlsClient encryption_;  ///< open where `tls_`
    State state_ = State::idle;
    bool ended_ = false;  ///< TEARDOWN was answered
    int cseq_ = 0;
    RtspReader reader_;
    SessionDescription description_;
    std::string sessionId_;
    std::size_t track_ = 0;
    std::vector<TrackWatch> watches_;
    std::vector<std::unique_ptr<UdpPair>> pairs_;
    std::vector<std::unique_ptr<SrtpReader>> decryption_;  ///< one for each track where packets are opened
    std::int64_t playSentNs_ = 0;
    std::uint64_t packets_ = 0;
    SilenceWatch silence_;
};

}  // namespace rtspload

#pragma once

#include <memory>
#include <string>

#include "hostapi/description/RTPPacketInfo.h"
#include "hostapi/description/SubMediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "refhost/live/StreamSource.h"
#include "support/SafePointer.h"

namespace refhost
{

/// The live dispatch behind RTPStreamDispatcherMgr: which track of which session plays from which stream.
///
/// The operations that RTPStreamDispatcherMgr declares mean the same here; the others serve the RTSP front.
/// Threads: any.
class LiveDispatcher
{
public:
    /// The one dispatcher of the process; made at the first call, never destroyed.
    static LiveDispatcher& instance();

    int initTrack(const std::string& streamKey, const std::string& sessionId, const std::string& trackId,
                  const SubMediaInfo& info, int payloadSize);
    int addConnection(const std::string& streamKey, const std::string& sessionId, const std::string& trackId,
                      const SafePointer<IConnection>& connection);
    int play(const std::string& streamKey, const std::string& sessionId, const std::string& trackId);
    int pause(const std::string& streamKey, const std::string& sessionId, const std::string& trackId);
    int remove(const std::string& streamKey, const std::string& sessionId, const std::string& trackId);
    int getSsrc(const std::string& streamKey, const std::string& sessionId, const std::string& trackId, int& ssrc);

    /// The first packet that the last play() of a track sends or will send: what RTP-Info must say.
    /// \returns false when the session has no such track or it never played
    bool firstPacketOfPlay(const std::string& sessionId, const std::string& trackId, RTPPacketInfo& out);

    /// How many tracks of sessions exist now; 0 after the last TEARDOWN.
    std::size_t trackCount() const;

private:
    LiveDispatcher();
    ~LiveDispatcher();

    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace refhost

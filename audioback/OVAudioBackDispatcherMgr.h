#pragma once
// Tested by tests/audioback/OVAudioBackSessions_test.cpp, tests/audioback/OVAudioBackWorker_test.cpp.

#include <map>
#include <string>
#include <vector>

#include "hostapi/audio/AudioDispatcher.h"
#include "hostapi/audio/IMediaPlayer.h"
#include "hostapi/base/OVMutex.h"
#include "hostapi/description/SubMediaInfo.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "hostapi/device/IConnection.h"
#include "hostapi/device/MTUParam.h"
#include "hostapi/threads/GThread.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// Process-wide manager of talk-back: audio that clients send to the device.
///
/// Every RTSP session with a back-channel track has one AudioDispatcher in the manager's table. One worker
/// thread serves all playing sessions: it keeps the device's audio output open exactly while a session plays,
/// lets every playing dispatcher receive and play, then receive and send RTCP, and removes those that failed.
///
/// An operation that removes sessions throws OVRuntimeError when the count record of a session's dispatcher
/// belongs to another object. That session and those before it are removed then; those after it stay for the
/// next call.
///
/// Life: created by the first getInstance(), destroyed at process exit, where it stops its thread and every
/// session.
/// Threads: any for the operations on sessions; each holds the manager's lock for its whole duration,
/// including calls into the dispatcher, and the worker holds it for each whole pass. The settings take no
/// lock: set them before start(). While the worker runs, only the worker and setEncoderType() use the output.
class OV_EXPORT OVAudioBackDispatcherMgr
{
public:
    /// One more handle to the one manager; never empty.
    static SafePointer<OVAudioBackDispatcherMgr> getInstance();

    /// Calls stop().
    virtual ~OVAudioBackDispatcherMgr() noexcept(false);
    OVAudioBackDispatcherMgr(const OVAudioBackDispatcherMgr&) = delete;
    OVAudioBackDispatcherMgr& operator=(const OVAudioBackDispatcherMgr&) = delete;

    // --- settings; no lock ---

    /// Passed to the output before each opening.
    void setDeviceInfoEx(const DeviceInfoEx& info);
    /// Stored only.
    void setDeviceExAbility(const DeviceExAbility& ability);
    /// Stored only.
    void setThirdPlatType(int type);
    /// Stored for the host. Default: 1440 bytes.
    void setMTUParam(const MTUParam& mtu);
    /// The value of setMTUParam(); valid as long as the manager, changed by the next setMTUParam().
    MTUParam& getMTUParam();

    /// Sets the device's audio output. A new output counts as open if the previous one was.
    /// Requires: the worker is stopped.
    /// \throws OVRuntimeError for an empty handle; the output is unchanged then
    void setMediaPlayer(const SafePointer<IMediaPlayer>& player);

    /// Passes the encoder type to the output; an open output is closed and reopened with it. Without this call
    /// the output is never given one.
    /// \param type  encoder type number of the host
    /// \returns 0, or the output's code when it did not reopen; it is closed then
    int setEncoderType(int type);

    // --- the worker ---

    /// Starts the worker thread; prints the result.
    /// \returns 0, also when it runs already; -6 without an audio output; -12 when no thread could be created
    int start();
    /// True while the worker thread runs.
    bool isRunning();
    /// Stops the worker, then stops and removes every session, then closes the output. After an exception the
    /// output is unchanged, and the next call continues. Requires: not called on the worker thread.
    void stop();

    // --- sessions; an unknown session id gives -6 and changes nothing ---

    /// Adds a session.
    /// \param sessionId   RTSP session; not in the table yet, or -6
    /// \param trackId     track name; all sessions in the table share one, another one is refused with -6
    /// \param info        the track as described
    /// \param packetSize  max bytes of RTP payload in a packet
    /// \returns 0, or the dispatcher's code when its preparation failed; nothing is added then
    int initSession(const std::string& sessionId, const std::string& trackId, const SubMediaInfo& info,
                    int packetSize);
    /// \returns the dispatcher's code
    int addSessionConnection(const std::string& sessionId, const SafePointer<IConnection>& connection);
    /// Whether the table has the session, playing or not.
    bool findSession(const std::string& sessionId);
    /// \returns 0 whatever the dispatcher returns
    int startAudio(const std::string& sessionId);
    /// \returns 0 whatever the dispatcher returns
    int pauseAudio(const std::string& sessionId);
    /// Removes the session without stopping its dispatcher, which is destroyed with its last handle.
    int stopAudio(const std::string& sessionId);
    /// \param[out] state  whether the session plays now
    int getConnetionState(const std::string& sessionId, bool& state);
    /// \param[out] ssrc  as returned by AudioDispatcher::getTrackSSRC()
    /// \returns the dispatcher's code
    int getTrackSSRC(const std::string& sessionId, int& ssrc);
    /// Number of sessions in the table, including paused ones and those not started yet.
    int getSessionNum();
    /// Removes every session without stopping its dispatcher.
    void clearAllSession();
    /// Removes every session that does not play now, including paused ones, without stopping its dispatcher.
    void clearStopSession();

    // --- steps of the worker thread ---

    /// One iteration: opens or closes the output, serves every playing session, waits.
    /// \returns 0, or -1 without an audio output
    int run();
    /// Opens the output when a session plays, closes it when none does. Calls the output without the lock.
    /// \returns 0 when it is open; -9 when no session plays or it did not open; -6 without an audio output
    int processPlayer();
    /// \returns 1 when no session plays, otherwise 0. Requires: the lock is held.
    int private_IsPauseAllAudio();
    /// Lets every playing session receive and play; removes those that failed permanently.
    /// \returns 0; -9 when the output failed: it is closed then, and no session is removed
    int recvAndPlayMediaData();
    /// Lets every playing session receive and send RTCP; removes those that failed permanently.
    /// \returns 0
    int recvAndSendRTCPData();

private:
    using Sessions = std::map<std::string, SafePointer<AudioDispatcher>>;

    OVAudioBackDispatcherMgr();

    OV_INTERNAL void removeSessions(const std::vector<std::string>& sessionIds);

    SafePointer<GThread> thread;
    OVMutex mutex;  // guards the sessions and the track id
    int encoderType;
    DeviceInfoEx deviceInfo;
    DeviceExAbility deviceAbility;
    int thirdPlatType;
    std::string audioBackTrackId;
    SafePointer<IMediaPlayer> mediaPlayer;
    bool playerOpened;
    Sessions sessions;
    MTUParam mtuParam;
};

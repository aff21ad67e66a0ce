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
/// thread serves all that play: it keeps the device's audio output open exactly while somebody plays, lets
/// every playing dispatcher receive and play, then receive and send RTCP, and removes those whose reception
/// failed.
///
/// An operation that removes sessions throws OVRuntimeError when the count record of a session's dispatcher
/// turns out to be another object's. That session is gone from the table then, as those before it; those
/// behind it are there for the next call.
///
/// Life: made at the first getInstance(), gone at process exit, where it stops its thread and every session.
/// Threads: any for the operations on sessions; each holds the manager's lock for its whole duration, the
/// calls into the dispatcher included, and the worker holds it for each whole pass. The settings take no
/// lock: make them before start(). While the worker runs the output is its own, but for setEncoderType().
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
    /// Kept only.
    void setDeviceExAbility(const DeviceExAbility& ability);
    /// Kept only.
    void setThirdPlatType(int type);
    /// Kept for the host; 1440 bytes at first.
    void setMTUParam(const MTUParam& mtu);
    /// What setMTUParam() was given last; valid as long as the manager, and changed by the next setting.
    MTUParam& getMTUParam();

    /// Sets the device's audio output. A new output counts as open when the one before was: change it only
    /// while the worker is stopped.
    /// \throws OVRuntimeError for an empty handle, and the output stays as it was
    void setMediaPlayer(const SafePointer<IMediaPlayer>& player);

    /// Passes the type of encoding to the output; an open output is closed and opened again with it. Without
    /// this call the output never gets one.
    /// \param type  encoder type number of the host
    /// \returns 0, or the output's code when it did not open again; then it is closed
    int setEncoderType(int type);

    // --- the worker ---

    /// Starts the worker thread; prints how that ended.
    /// \returns 0, also when it runs already; -6 without an audio output; -12 when no thread could be made
    int start();
    /// True while the worker thread runs.
    bool isRunning();
    /// Stops the worker, then stops and removes every session, then closes the output. May be called at any
    /// time, but not by the worker itself. What it throws on leaves the output as it is; the next call goes
    /// on.
    void stop();

    // --- sessions; an unknown session id gives -6 and changes nothing ---

    /// Adds a session.
    /// \param sessionId   RTSP session; not in the table yet, or -6
    /// \param trackId     track name; all sessions in the table share one, another one is refused with -6
    /// \param info        the track as described
    /// \param packetSize  most bytes of RTP payload in one packet
    /// \returns 0, or the dispatcher's code when it could not prepare; then nothing was added
    int initSession(const std::string& sessionId, const std::string& trackId, const SubMediaInfo& info,
                    int packetSize);
    /// \returns the dispatcher's code
    int addSessionConnection(const std::string& sessionId, const SafePointer<IConnection>& connection);
    /// Whether the table has the session, playing or not.
    bool findSession(const std::string& sessionId);
    /// \returns 0 whatever the dispatcher says
    int startAudio(const std::string& sessionId);
    /// \returns 0 whatever the dispatcher says
    int pauseAudio(const std::string& sessionId);
    /// Removes the session without stopping its dispatcher, which goes with its last handle.
    int stopAudio(const std::string& sessionId);
    /// \param[out] state  whether the session plays now
    int getConnetionState(const std::string& sessionId, bool& state);
    /// \param[out] ssrc  as AudioDispatcher::getTrackSSRC() gives it
    /// \returns the dispatcher's code
    int getTrackSSRC(const std::string& sessionId, int& ssrc);
    /// How many sessions the table has, those that are paused or not yet started included.
    int getSessionNum();
    /// Removes every session without stopping its dispatcher.
    void clearAllSession();
    /// Removes every session that does not play now, paused ones included, without stopping its dispatcher.
    void clearStopSession();

    // --- steps of the worker thread ---

    /// One iteration: opens or closes the output, serves every playing session, waits.
    /// \returns 0, or -1 without an audio output
    int run();
    /// Opens the output when somebody plays, closes it when nobody does. Handles the output outside the lock.
    /// \returns 0 when it is open; -9 when nobody plays or it did not open; -6 without an audio output
    int processPlayer();
    /// \returns 1 when no session plays, otherwise 0. The caller holds the lock.
    int private_IsPauseAllAudio();
    /// Lets every playing session receive and play; removes those that failed for good.
    /// \returns 0; -9 when the output failed: it is closed then, and no session was removed
    int recvAndPlayMediaData();
    /// Lets every playing session receive and send RTCP; removes those that failed for good.
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

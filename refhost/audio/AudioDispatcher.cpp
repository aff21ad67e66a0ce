#include "hostapi/audio/AudioDispatcher.h"

#include "hostapi/audio/IMediaPlayer.h"
#include "refhost/base/HostStatus.h"

using refhost::hostTalkBackUnavailable;

IMediaPlayer::~IMediaPlayer() noexcept(false) = default;

// Nothing to keep: this host has no talk-back, and refuses a session before it could play.
struct AudioDispatcher::Impl
{
};

AudioDispatcher::AudioDispatcher(const SafePointer<IMediaPlayer>&) : impl_(nullptr) {}

AudioDispatcher::~AudioDispatcher() noexcept(false) = default;

int AudioDispatcher::initRTBBuilder(const SubMediaInfo&, int)
{
    return hostTalkBackUnavailable;
}

int AudioDispatcher::setConnection(const SafePointer<IConnection>&)
{
    return hostTalkBackUnavailable;
}

int AudioDispatcher::play()
{
    return hostTalkBackUnavailable;
}

int AudioDispatcher::pause()
{
    return hostTalkBackUnavailable;
}

int AudioDispatcher::stop()
{
    return 0;
}

bool AudioDispatcher::isPlaying()
{
    return false;
}

int AudioDispatcher::getTrackSSRC(int&)
{
    return hostTalkBackUnavailable;
}

int AudioDispatcher::recvAndPlayMediaData(bool&)
{
    return hostTalkBackUnavailable;
}

int AudioDispatcher::recvAndSendRTCPData()
{
    return hostTalkBackUnavailable;
}

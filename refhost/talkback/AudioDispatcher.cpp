#include "hostapi/audio/AudioDispatcher.h"

#include "refhost/talkback/SharedOutput.h"
#include "refhost/talkback/TalkDecoder.h"
#include "refhost/talkback/TalkSession.h"

struct AudioDispatcher::Impl
{
    refhost::TalkSession session;
};

AudioDispatcher::AudioDispatcher(const SafePointer<IMediaPlayer>& player)
    : impl_(new Impl{{player, refhost::SharedOutput::instance(), refhost::HostClock::system(),
                      refhost::TalkDecoder::make}})
{
}

AudioDispatcher::~AudioDispatcher() noexcept(false)
{
    delete impl_;
}

int AudioDispatcher::initRTBBuilder(const SubMediaInfo& info, int)
{
    return impl_->session.init(info);
}

int AudioDispatcher::setConnection(const SafePointer<IConnection>& connection)
{
    return impl_->session.connect(connection);
}

int AudioDispatcher::play()
{
    return impl_->session.play();
}

int AudioDispatcher::pause()
{
    return impl_->session.pause();
}

int AudioDispatcher::stop()
{
    return impl_->session.stop();
}

bool AudioDispatcher::isPlaying()
{
    return impl_->session.isPlaying();
}

int AudioDispatcher::getTrackSSRC(int& ssrc)
{
    ssrc = impl_->session.ssrc();
    return 0;
}

int AudioDispatcher::recvAndPlayMediaData(bool& playerFault)
{
    return impl_->session.receive(playerFault);
}

int AudioDispatcher::recvAndSendRTCPData()
{
    return impl_->session.report();
}

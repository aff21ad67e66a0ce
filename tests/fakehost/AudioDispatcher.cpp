#include "hostapi/audio/AudioDispatcher.h"

#include <map>
#include <mutex>

#include "tests/fakehost/FakeAudioDispatchers.h"
#include "tests/fakehost/FakeHost.h"

struct AudioDispatcher::Impl
{
    int number;
    bool playing = false;
    SafePointer<IMediaPlayer> player;
    SafePointer<IConnection> connection;

    FakeHost::Outcome outcomeOf(const char* operation) const
    {
        return FakeHost::instance().outcomeOf("AudioDispatcher", number, operation, 0);
    }
};

namespace
{

// Never destroyed: the manager's dispatchers may be the last to go.
struct Living
{
    std::mutex mutex;
    std::map<int, AudioDispatcher*> byNumber;

    static Living& instance()
    {
        static Living* const living = new Living;
        return *living;
    }
};

}  // namespace

AudioDispatcher* FakeAudioDispatchers::find(int number)
{
    Living& living = Living::instance();
    const std::lock_guard<std::mutex> lock(living.mutex);
    const auto found = living.byNumber.find(number);
    return found == living.byNumber.end() ? nullptr : found->second;
}

AudioDispatcher::AudioDispatcher(const SafePointer<IMediaPlayer>& player)
    : impl_(new Impl{FakeHost::instance().nextNumber("AudioDispatcher"), false, {}, {}})
{
    {
        Living& living = Living::instance();
        const std::lock_guard<std::mutex> lock(living.mutex);
        living.byNumber[impl_->number] = this;
    }
    FakeHost::instance().born("AudioDispatcher");
    FakeHost::instance().called("AudioDispatcher", impl_->number, "AudioDispatcher",
                                player.isEmpty() ? "no player" : "player");
    if (!player.isEmpty())
    {
        impl_->player = player;
    }
}

AudioDispatcher::~AudioDispatcher() noexcept(false)
{
    FakeHost::instance().called("AudioDispatcher", impl_->number, "~AudioDispatcher");
    {
        Living& living = Living::instance();
        const std::lock_guard<std::mutex> lock(living.mutex);
        living.byNumber.erase(impl_->number);
    }
    FakeHost::instance().died("AudioDispatcher");
    delete impl_;
}

int AudioDispatcher::initRTBBuilder(const SubMediaInfo& info, int packetSize)
{
    return FakeHost::instance()
        .outcomeOf("AudioDispatcher", impl_->number, "initRTBBuilder",
                   info.trackId + ", " + std::to_string(packetSize), 0)
        .result;
}

int AudioDispatcher::setConnection(const SafePointer<IConnection>& connection)
{
    const int result = FakeHost::instance()
                           .outcomeOf("AudioDispatcher", impl_->number, "setConnection",
                                      "kind " + std::to_string(connection->transportKind), 0)
                           .result;
    if (result == 0)
    {
        impl_->connection = connection;
    }
    return result;
}

int AudioDispatcher::play()
{
    const int result = impl_->outcomeOf("play").result;
    impl_->playing = impl_->playing || result == 0;
    return result;
}

int AudioDispatcher::pause()
{
    const int result = impl_->outcomeOf("pause").result;
    impl_->playing = impl_->playing && result != 0;
    return result;
}

int AudioDispatcher::stop()
{
    const int result = impl_->outcomeOf("stop").result;
    impl_->playing = false;
    return result;
}

bool AudioDispatcher::isPlaying()
{
    FakeHost::instance().called("AudioDispatcher", impl_->number, "isPlaying");
    return impl_->playing;
}

int AudioDispatcher::getTrackSSRC(int& ssrc)
{
    const int result = impl_->outcomeOf("getTrackSSRC").result;
    if (result == 0)
    {
        ssrc = 2000 + impl_->number;
    }
    return result;
}

int AudioDispatcher::recvAndPlayMediaData(bool& playerFault)
{
    const FakeHost::Outcome outcome = impl_->outcomeOf("recvAndPlayMediaData");
    playerFault = playerFault || outcome.playerFault;
    return outcome.result;
}

int AudioDispatcher::recvAndSendRTCPData()
{
    return impl_->outcomeOf("recvAndSendRTCPData").result;
}

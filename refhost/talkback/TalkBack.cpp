#include "refhost/talkback/TalkBack.h"

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "refhost/base/Log.h"
#include "refhost/talkback/SharedOutput.h"
#include "refhost/talkback/outputs/AudioOutput.h"
#include "refhost/talkback/outputs/OutputPlayer.h"
#include "support/StatusCode.h"

namespace refhost
{
namespace
{

/// A lost packet is given up when its successor has waited for TalkSettings::maxReorderWait. Until then (45
/// ms with packets of 20 ms) and until the worker's next turn, the output needs something to play.
constexpr std::chrono::milliseconds lead(60);
/// The mixer already keeps each sender's audio ahead, and its sum is even.
constexpr std::chrono::milliseconds leadOfMixed(30);

TalkPolicy policyOf(const std::string& name)
{
    if (name == "newest")
    {
        return TalkPolicy::newest;
    }
    if (name == "mix")
    {
        return TalkPolicy::mix;
    }
    return name == "refuse" ? TalkPolicy::refuse : TalkPolicy::first;
}

}  // namespace

TalkBack::TalkBack(const ServerConfig& config, const DeviceInfoEx& device, const DeviceExAbility& ability,
                   int platformType)
    : device_(device), ability_(ability), platformType_(platformType)
{
    setConfig(config);
}

void TalkBack::setConfig(const ServerConfig& config)
{
    if (runs_ || !config.offersTalkBack())
    {
        return;
    }
    TalkSettings settings;
    settings.policy = policyOf(config.talkBack.policy);
    settings.format = {config.talkBack.sampleRate, config.talkBack.channels};
    settings.maxTalkSenders = static_cast<std::size_t>(config.limits.talkSenders);
    SharedOutput::instance().configure(settings);

    MTUParam mtu;
    mtu.setMTUValue(config.mtu);
    const SafePointer<OVAudioBackDispatcherMgr> manager = OVAudioBackDispatcherMgr::getInstance();
    manager->setDeviceInfoEx(device_);
    manager->setDeviceExAbility(ability_);
    manager->setThirdPlatType(platformType_);
    manager->setMTUParam(mtu);
    manager->setMediaPlayer(SafePointer<IMediaPlayer>(
        new OutputPlayer(AudioOutput::make(config.talkBack.output, config.talkBack.device), settings.format,
                         settings.policy == TalkPolicy::mix ? leadOfMixed : lead)));
    manager->setEncoderType(config.talkBack.encoderType);
    runs_ = manager->start() == statusSuccess;
    if (!runs_)
    {
        Log::error("talk-back: its thread cannot be started, so no client will be played");
    }
}

TalkBack::~TalkBack()
{
    if (runs_)
    {
        OVAudioBackDispatcherMgr::getInstance()->stop();
    }
}

}  // namespace refhost

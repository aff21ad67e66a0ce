#include "refhost/audio/TalkBack.h"

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "refhost/audio/AudioOutput.h"
#include "refhost/audio/OutputPlayer.h"
#include "refhost/audio/SharedOutput.h"
#include "refhost/base/Log.h"
#include "support/StatusCode.h"

namespace refhost
{
namespace
{

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
{
    if (!config.offersTalkBack())
    {
        return;
    }
    TalkSettings settings;
    settings.policy = policyOf(config.talkBack.policy);
    settings.format = {config.talkBack.sampleRate, config.talkBack.channels};
    SharedOutput::instance().configure(settings);

    MTUParam mtu;
    mtu.setMTUValue(config.talkBack.mtu);
    const SafePointer<OVAudioBackDispatcherMgr> manager = OVAudioBackDispatcherMgr::getInstance();
    manager->setDeviceInfoEx(device);
    manager->setDeviceExAbility(ability);
    manager->setThirdPlatType(platformType);
    manager->setMTUParam(mtu);
    manager->setMediaPlayer(SafePointer<IMediaPlayer>(new OutputPlayer(
        AudioOutput::make(config.talkBack.output, config.talkBack.device), settings.format)));
    manager->setEncoderType(config.talkBack.encoderType);
    runs_ = manager->start() == statusSuccess;
    if (!runs_)
    {
        Log::error("talk-back: its thread cannot be started, so nobody will be heard");
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

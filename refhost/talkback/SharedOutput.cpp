#include "refhost/talkback/SharedOutput.h"

#include "refhost/base/Log.h"

namespace refhost
{

SharedOutput& SharedOutput::instance()
{
    // Never destroyed: the talk-back manager may release sessions when the process ends.
    static SharedOutput* const output = new SharedOutput(TalkSettings());
    return *output;
}

SharedOutput::SharedOutput(const TalkSettings& settings)
{
    configure(settings);
}

SharedOutput::~SharedOutput() = default;

void SharedOutput::configure(const TalkSettings& settings)
{
    const MutexLock guard(mutex_);
    settings_ = settings;
    admitted_.clear();
    holder_ = Floor();
    floor_ = std::make_unique<TalkFloor>(settings.policy, settings.silence);
    mixer_ = settings.policy == TalkPolicy::mix ? std::make_unique<TalkMixer>(settings.format) : nullptr;
}

TalkSettings SharedOutput::settings() const
{
    const MutexLock guard(mutex_);
    return settings_;
}

bool SharedOutput::admit(TalkSender sender)
{
    const MutexLock guard(mutex_);
    const bool known = admitted_.count(sender) != 0;
    if ((!known && admitted_.size() >= settings_.maxTalkSenders) || !floor_->admit(sender))
    {
        return false;
    }
    admitted_.insert(sender);
    return true;
}

void SharedOutput::pause(TalkSender sender)
{
    const MutexLock guard(mutex_);
    floor_->pause(sender);
    if (mixer_)
    {
        mixer_->remove(sender);
    }
}

void SharedOutput::leave(TalkSender sender)
{
    pause(sender);
    const MutexLock guard(mutex_);
    floor_->leave(sender);
    admitted_.erase(sender);
}

bool SharedOutput::claim(TalkSender sender, const std::string& name, MonotonicTime now, std::string_view user)
{
    const MutexLock guard(mutex_);
    const TalkSender before = floor_->owner();
    const bool audible = floor_->claim(sender, now);
    if (floor_->owner() != before)
    {
        Log::info("talk-back: {} has the audio output", name);
    }
    if (audible && !mixer_)
    {
        if (holder_.holder != name)
        {
            holder_ = {false, name, std::string(user)};
        }
        audibleAt_ = now;
    }
    return audible;
}

SharedOutput::Floor SharedOutput::floor(MonotonicTime now) const
{
    const MutexLock guard(mutex_);
    if (mixer_)
    {
        return {true, "", ""};
    }
    return floor_->owner() == nullptr || now - audibleAt_ >= settings_.silence ? Floor() : holder_;
}

int SharedOutput::play(TalkSender sender, const std::vector<std::int16_t>& samples, IMediaPlayer& player)
{
    const MutexLock guard(mutex_);
    if (!mixer_)
    {
        return give(player, samples);
    }
    mixer_->add(sender, samples);
    return 0;
}

int SharedOutput::pump(IMediaPlayer& player, MonotonicTime now)
{
    const MutexLock guard(mutex_);
    if (!mixer_)
    {
        return 0;
    }
    mixer_->take(now, sum_);
    return give(player, sum_);
}

int SharedOutput::give(IMediaPlayer& player, const std::vector<std::int16_t>& samples)
{
    if (samples.empty())
    {
        return 0;
    }
    return player.play(reinterpret_cast<const std::uint8_t*>(samples.data()),
                       samples.size() * sizeof(std::int16_t));
}

}  // namespace refhost

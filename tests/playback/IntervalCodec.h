#pragma once

#include <functional>
#include <string>

#include "mediaurl/IMediaUrlFactory.h"
#include "tests/live/ScriptedCodec.h"

/// A third-party codec: "IMediaUrl::parsePlaybackMediaUrl" can be scripted; for any text it returns camera 5
/// of device "parsed" and one interval.
class IntervalCodec : public ScriptedCodec
{
public:
    IntervalCodec(double begin, double end);
    int parsePlaybackMediaUrl(const std::string& url) override;
    /// "recorded <device> <camera> <begin> <end>".
    std::string toPlayBackMediaUrl() override;

private:
    const double begin_;
    const double end_;
};

/// Creates such codecs; "IMediaUrlFactory::createMediaUrl" can be scripted.
class IntervalCodecFactory : public IMediaUrlFactory
{
public:
    /// \param onCreate  called at the start of each createMediaUrl()
    IntervalCodecFactory(double begin, double end, std::function<void()> onCreate = nullptr);
    ~IntervalCodecFactory() noexcept(false) override;
    int createMediaUrl(SafePointer<IMediaUrl>& codec) override;

private:
    const double begin_;
    const double end_;
    const std::function<void()> onCreate_;
};

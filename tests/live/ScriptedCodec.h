#pragma once

#include <functional>
#include <string>

#include "mediaurl/IMediaUrl.h"
#include "mediaurl/IMediaUrlFactory.h"

/// A third-party codec: "IMediaUrl::parseMediaUrl" and "IMediaUrl::parseMulticastMediaUrl" can be scripted;
/// for any text they return camera 5, stream 6 of device "parsed", and the second one also multicast.
class ScriptedCodec : public IMediaUrl
{
public:
    static constexpr int ownType = 42;

    int parseMediaUrl(const std::string& url) override;
    /// "canonical <device> <camera> <stream>".
    std::string toMediaUrl() override;
    int parseMulticastMediaUrl(const std::string& url) override;
    /// "multicast <device> <camera> <stream>".
    std::string toMulticastMediaUrl() override;
    int parsePlaybackMediaUrl(const std::string& url) override;
    std::string toPlayBackMediaUrl() override;
    int getThirdPlatType() override;

private:
    int parseAs(const char* operation, const std::string& url);
    std::string renderAs(const char* family) const;
};

/// Creates scripted codecs; "IMediaUrlFactory::createMediaUrl" can be scripted.
class ScriptedCodecFactory : public IMediaUrlFactory
{
public:
    /// \param onCreate  called at the start of each createMediaUrl()
    explicit ScriptedCodecFactory(std::function<void()> onCreate = nullptr);
    ~ScriptedCodecFactory() noexcept(false) override;
    int createMediaUrl(SafePointer<IMediaUrl>& codec) override;

private:
    std::function<void()> onCreate_;
};

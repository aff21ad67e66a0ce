#pragma once
// Tested by tests/mediaurl/OrvaneMediaUrlFactory_test.cpp.

#include <string>

#include "mediaurl/MediaUrlParam.h"
#include "support/Export.h"

/// A codec between the text of media URLs and the values they name.
///
/// Values pass through `objMediaUrlParam` alone: a parse operation writes what it recognised there, a
/// rendering operation renders what it finds there. Made by an IMediaUrlFactory for one request and held
/// through SafePointer<IMediaUrl>; used by one thread at a time.
class OV_EXPORT IMediaUrl
{
public:
    IMediaUrl();
    virtual ~IMediaUrl() noexcept(false);

    /// Reads a live URL. \returns 0, or a code of the codec when the text is none
    virtual int parseMediaUrl(const std::string& url) = 0;
    /// Renders the canonical live URL, without scheme and authority.
    virtual std::string toMediaUrl() = 0;

    /// Reads a multicast URL; result as above.
    virtual int parseMulticastMediaUrl(const std::string& url) = 0;
    /// Renders the canonical multicast URL, without scheme and authority.
    virtual std::string toMulticastMediaUrl() = 0;

    /// Reads a playback URL; result as above.
    virtual int parsePlaybackMediaUrl(const std::string& url) = 0;
    /// Renders the canonical playback URL, without scheme and authority.
    virtual std::string toPlayBackMediaUrl() = 0;

    /// Platform type number of the codec itself, whatever number its factory is registered under.
    virtual int getThirdPlatType() = 0;

    /// What was parsed last, or what is to be rendered.
    MediaUrlParam objMediaUrlParam;
};

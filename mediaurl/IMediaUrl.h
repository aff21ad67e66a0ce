#pragma once
// Tested by tests/mediaurl/OrvaneMediaUrlFactory_test.cpp.

#include <string>

#include "mediaurl/MediaUrlParam.h"
#include "support/Export.h"

/// A codec between the text of media URLs and the values they name.
///
/// Values pass through `objMediaUrlParam` only: a parse operation writes the recognised values there, a
/// rendering operation renders them from there. Created by an IMediaUrlFactory for one request and held by
/// SafePointer<IMediaUrl>; used by one thread at a time.
class OV_EXPORT IMediaUrl
{
public:
    IMediaUrl();
    virtual ~IMediaUrl() noexcept(false);

    /// Parses a live URL. \returns 0, or a code of the codec when the text is not one
    virtual int parseMediaUrl(const std::string& url) = 0;
    /// Renders the canonical live URL, without scheme and authority.
    virtual std::string toMediaUrl() = 0;

    /// Parses a multicast URL; result as above.
    virtual int parseMulticastMediaUrl(const std::string& url) = 0;
    /// Renders the canonical multicast URL, without scheme and authority.
    virtual std::string toMulticastMediaUrl() = 0;

    /// Parses a playback URL; result as above.
    virtual int parsePlaybackMediaUrl(const std::string& url) = 0;
    /// Renders the canonical playback URL, without scheme and authority.
    virtual std::string toPlayBackMediaUrl() = 0;

    /// Platform type number of the codec itself, independent of the number its factory is registered under.
    virtual int getThirdPlatType() = 0;

    /// The values parsed last, or to be rendered.
    MediaUrlParam objMediaUrlParam;
};

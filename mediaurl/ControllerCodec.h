#pragma once

#include <string>

#include "mediaurl/IMediaUrl.h"
#include "mediaurl/IMediaUrlFactory.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// How a controller comes to a codec of its own: by the registry and the factory found there, with the
/// controller's name in what is printed when that fails.
class OV_INTERNAL ControllerCodec
{
public:
    /// \param controllerName  class name in the printed lines; a literal
    explicit ControllerCodec(const char* controllerName);

    /// Makes a fresh codec; a failure is printed on standard output.
    /// \param thirdPlatType  platform type number of the codec's factory
    /// \param url            the URL that the request is about, for the printed line
    /// \param[out] codec     the codec on success
    /// \returns 0; -6 when no factory is registered for the type; otherwise the factory's code
    int create(int thirdPlatType, const std::string& url, SafePointer<IMediaUrl>& codec) const;

    /// The same for rendering, where there is no URL to print: another line tells that no factory is there.
    int createForRendering(int thirdPlatType, SafePointer<IMediaUrl>& codec) const;

private:
    int createBy(const SafePointer<IMediaUrlFactory>& factory, SafePointer<IMediaUrl>& codec) const;

    const char* controllerName_;
};

#pragma once
// Tested by tests/live/LiveControllerFactories_test.cpp, tests/playback/OVPlaybackControllerFactory_test.cpp.

#include <string>

#include "mediaurl/IMediaUrl.h"
#include "mediaurl/IMediaUrlFactory.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// A controller's codec for one use, found by the registry, and the factory that made it: both are held until
/// the use is over, so that a factory that is unregistered meanwhile outlives its codec. The controller's
/// name stands in what is printed when there is none.
class OV_INTERNAL ControllerCodec
{
public:
    /// \param controllerName  class name in the printed lines; a literal
    explicit ControllerCodec(const char* controllerName);
    ControllerCodec(const ControllerCodec&) = delete;
    ControllerCodec& operator=(const ControllerCodec&) = delete;

    /// Makes a fresh codec; a failure is printed on standard output.
    /// \param thirdPlatType  platform type number of the codec's factory
    /// \param url            the URL that the request is about, for the printed line
    /// \returns 0; -6 when no factory is registered for the type; otherwise the factory's code
    int create(int thirdPlatType, const std::string& url);

    /// The same for rendering, where there is no URL to print: another line reports a missing factory.
    int createForRendering(int thirdPlatType);

    /// The codec. \throws OVRuntimeError when there is none
    IMediaUrl* operator->() const;

private:
    int createCodec();

    const char* controllerName_;
    // In this order: the codec goes first.
    SafePointer<IMediaUrlFactory> factory_;
    SafePointer<IMediaUrl> codec_;
};

#pragma once
// Tested by tests/live/LiveControllerFactories_test.cpp, tests/playback/OVPlaybackControllerFactory_test.cpp.

#include <string>

#include "mediaurl/IMediaUrl.h"
#include "mediaurl/IMediaUrlFactory.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// A controller's codec for one use and the factory that made it, found in the registry. Holds both, so that a
/// factory that is unregistered meanwhile outlives its codec. Failures are printed with the controller's name.
class OV_INTERNAL ControllerCodec
{
public:
    /// \param controllerName  class name in the printed lines; a literal
    explicit ControllerCodec(const char* controllerName);
    ControllerCodec(const ControllerCodec&) = delete;
    ControllerCodec& operator=(const ControllerCodec&) = delete;

    /// Creates a new codec; a failure is printed on standard output.
    /// \param thirdPlatType  platform type number of the codec's factory
    /// \param url            the request's URL, for the printed line
    /// \returns 0; -6 when no factory is registered for the type; otherwise the factory's code
    int create(int thirdPlatType, const std::string& url);

    /// The same for rendering, where there is no URL to print: a missing factory is printed by another line.
    int createForRendering(int thirdPlatType);

    /// The codec. \throws OVRuntimeError when there is none
    IMediaUrl* operator->() const;

private:
    int createCodec();

    const char* controllerName_;
    // In this order: the codec is released first.
    SafePointer<IMediaUrlFactory> factory_;
    SafePointer<IMediaUrl> codec_;
};

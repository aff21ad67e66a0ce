#pragma once
// Tested by tests/live/LiveControllerFactories_test.cpp.

#include <string>

#include "live/IRTSPController.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// Makes one kind of controllers. Held by the host, which asks it for a controller per request.
/// Threads: any; an implementation does its own locking.
class OV_EXPORT IRTSPControllerFactory
{
public:
    virtual ~IRTSPControllerFactory() noexcept(false);

    /// Makes a controller for a URL.
    /// \param url            the request's URL, with or without scheme and authority
    /// \param[out] out       the controller. It is there on failure too, unusable: judge by the result
    ///                       alone and drop the handle. What the handle held before is let go.
    /// \param mediaInfoFlag  passed on to MediaInfoTool::createMediaInfo()
    /// \returns 0; -6 when no URL codec is registered for the platform type; otherwise the code of the
    ///          codec or of MediaInfoTool
    virtual int createMedia(const std::string& url, SafePointer<IRTSPController>& out,
                            bool mediaInfoFlag) = 0;
};

#pragma once
// Tested by tests/live/LiveControllerFactories_test.cpp.

#include <string>

#include "live/IRTSPController.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// Creates controllers of one kind. Held by the host, which requests a controller per DESCRIBE or SETUP.
/// Threads: any; an implementation does its own locking.
class OV_EXPORT IRTSPControllerFactory
{
public:
    virtual ~IRTSPControllerFactory() noexcept(false);

    /// Creates a controller for a URL.
    /// \param url            the request's URL, with or without scheme and authority
    /// \param[out] out       the controller; set on failure too, but unusable then: check the result and drop
    ///                       the handle. The handle's previous hold is released.
    /// \param mediaInfoFlag  passed on to MediaInfoTool::createMediaInfo()
    /// \returns 0; -6 when no URL codec is registered for the platform type; otherwise the code of the
    ///          codec or of MediaInfoTool
    virtual int createMedia(const std::string& url, SafePointer<IRTSPController>& out,
                            bool mediaInfoFlag) = 0;
};

#pragma once
// Tested by tests/live/LiveControllerFactories_test.cpp, tests/playback/OVPlaybackControllerFactory_test.cpp.

#include "live/IRTSPController.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// Creates a factory's controller. Deliberately, the handle is set before the controller is initialised: a
/// controller that fails stays with the caller, who drops it.
template <class Controller>
class OV_INTERNAL NewController
{
public:
    /// \param[out] out  the only owner of a new controller; its previous hold is released
    /// \returns the controller, for its initialisation
    static Controller& in(SafePointer<IRTSPController>& out)
    {
        Controller* const controller = new Controller;
        out = SafePointer<IRTSPController>(controller);
        return *controller;
    }
};

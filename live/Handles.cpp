// Instantiations of the handles of live controllers and their factories, for hosts to bind to.
#include "hostapi/live/LiveDispatcherMgr.h"
#include "hostapi/live/MulticastSessionParameter.h"
#include "hostapi/live/RTPStreamDispatcherMgr.h"
#include "live/IRTSPController.h"
#include "support/SafePointer.h"

template class SafePointer<IRTSPController>;
template class SafePointer<LiveDispatcherMgr>;
template class SafePointer<MulticastSessionParameter>;
template class SafePointer<RTPStreamDispatcherMgr>;

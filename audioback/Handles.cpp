// Instantiations of the talk-back manager's handles and callable, for hosts to bind to.
#include "audioback/OVAudioBackDispatcherMgr.h"
#include "support/SafePointer.h"
#include "support/function_obj.h"

template class SafePointer<AudioDispatcher>;
template class SafePointer<GThread>;
template class SafePointer<IConnection>;
template class SafePointer<IMediaPlayer>;
template class SafePointer<OVAudioBackDispatcherMgr>;
template class function_obj<int, bind_funcobj0<int, OVAudioBackDispatcherMgr>>;

// Instantiations of playback's handles, for hosts to bind to.
#include "hostapi/playback/IMediaSource.h"
#include "hostapi/playback/OVAVPlayBackSource.h"
#include "hostapi/playback/RTPPlayBackDispacher.h"
#include "hostapi/playback/RTPPlayBackDispacherMgr.h"
#include "support/SafePointer.h"

template class SafePointer<IMediaSource>;
template class SafePointer<OVAVPlayBackSource>;
template class SafePointer<RTPPlayBackDispacher>;
template class SafePointer<RTPPlayBackDispacherMgr>;
template SafePointer<IMediaSource>::SafePointer(const SafePointer<OVAVPlayBackSource>&);

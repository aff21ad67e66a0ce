#include "refhost/rtsp/session/SessionTrack.h"

#include <utility>

#include "refhost/rtsp/session/DescribedTracks.h"

namespace refhost
{

SessionTrack::SessionTrack(std::string trackId) : id(std::move(trackId)) {}

void SessionTrack::startPlay()
{
    if (state_.is(SessionTrackState::preparing))
    {
        state_.enter(SessionTrackState::ready);
    }
    else if (state_.is(SessionTrackState::starting))
    {
        state_.enter(SessionTrackState::playing);
    }
}

void SessionTrack::play()
{
    if (!playing())
    {
        state_.enter(SessionTrackState::starting);
    }
}

void SessionTrack::prepare()
{
    if (!playing())
    {
        state_.enter(SessionTrackState::preparing);
    }
}

void SessionTrack::pause()
{
    state_.enter(SessionTrackState::ready);
}

bool SessionTrack::isBackChannel(SafePointer<IRTSPController>& controller)
{
    if (!backChannel_)
    {
        SubMediaInfo described;
        backChannel_ = DescribedTracks(controller).find(id, described) && described.getAudioBackInfoFlag();
    }
    return *backChannel_;
}

void SessionTrack::close()
{
    if (delivery.transport && !delivery.shared())
    {
        (*delivery.transport)->close();
    }
    delivery.channels.reset();
}

}  // namespace refhost

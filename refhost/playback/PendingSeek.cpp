#include "refhost/playback/PendingSeek.h"

namespace refhost
{

void PendingSeek::request(const Target& target)
{
    search_ = {target, search_.serial + 1};
    state_.enter(SeekState::requested);
}

void PendingSeek::finish(const Search& search, bool found)
{
    if (search.serial == search_.serial)
    {
        state_.enter(found || search.target.goesOn ? SeekState::settled : SeekState::failed);
    }
}

bool PendingSeek::takeFailure()
{
    if (!state_.is(SeekState::failed))
    {
        return false;
    }
    state_.enter(SeekState::settled);
    return true;
}

}  // namespace refhost

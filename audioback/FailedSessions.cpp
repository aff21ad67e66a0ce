#include "audioback/FailedSessions.h"

#include "support/StatusCode.h"

void FailedSessions::note(const std::string& sessionId, int code)
{
    switch (code)
    {
        case statusSuccess:
        case statusPlayerUnusable:
        case audioDispatcherIdle:
        case audioDispatcherAgain:
            return;
        default:
            ids_.push_back(sessionId);
    }
}

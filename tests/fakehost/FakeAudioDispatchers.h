#pragma once

#include "hostapi/audio/AudioDispatcher.h"

/// What tests do with the fake host's audio dispatchers beside scripting them.
class FakeAudioDispatchers
{
public:
    /// The living one with this number in the log; null when there is none. Of one thread at a time.
    static AudioDispatcher* find(int number);
};

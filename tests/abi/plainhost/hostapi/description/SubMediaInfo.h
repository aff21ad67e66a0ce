#pragma once

/// Of a host whose operations are const only where the library asks for that.
class SubMediaInfo
{
public:
    bool getAudioBackInfoFlag();
};

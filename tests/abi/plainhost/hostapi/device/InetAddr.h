#pragma once

/// Of a host whose operations are const only where the library asks for that.
class InetAddr
{
public:
    const char* getIP();
};

#pragma once

/// Of a host whose operations are const only where the library asks for that.
class MTUParam
{
public:
    void setMTUValue(int bytes);
    int getMTUValue();
};

#pragma once

/// MTU of the network path. A plain value.
class MTUParam
{
public:
    /// \param bytes  size of an IP packet
    void setMTUValue(int bytes)
    {
        mtu_ = bytes;
    }

    /// Size of an IP packet in bytes; 0 unless set.
    int getMTUValue() const
    {
        return mtu_;
    }

private:
    int mtu_ = 0;
};

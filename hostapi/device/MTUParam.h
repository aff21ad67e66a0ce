#pragma once

/// Largest packet that the network path takes. A plain value.
class MTUParam
{
public:
    /// \param bytes  size of an IP packet
    void setMTUValue(int bytes)
    {
        mtu_ = bytes;
    }

    /// Size of an IP packet in bytes; 0 unless it was set.
    int getMTUValue() const
    {
        return mtu_;
    }

private:
    int mtu_ = 0;
};

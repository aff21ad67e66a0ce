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

    int getMTUValue() const
    {
        return mtu_;
    }

private:
    int mtu_ = 0;
};

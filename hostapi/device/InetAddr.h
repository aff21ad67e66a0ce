#pragma once

#include <string>

/// Address of a device on the network.
class InetAddr
{
public:
    /// \param ip  numeric IPv4 or IPv6 address; empty when unknown
    void setIP(const std::string& ip)
    {
        ip_ = ip;
    }

    /// Valid until the next setIP() or the end of the record.
    const char* getIP() const
    {
        return ip_.c_str();
    }

private:
    std::string ip_;
};

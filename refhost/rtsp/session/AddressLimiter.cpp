#include "refhost/rtsp/session/AddressLimiter.h"

namespace refhost
{

AddressLimiter::AddressLimiter(int limit, int limitPerAddress)
    : limit_(static_cast<std::size_t>(limit)), limitPerAddress_(limitPerAddress)
{
}

bool AddressLimiter::take(const SocketAddress::Key& address)
{
    const MutexLock guard(mutex_);
    if (count_ >= limit_)
    {
        return false;
    }
    const SocketAddress::Key network = SocketAddress::networkOf(address);
    int& ofAddress = byAddress_[network];
    if (ofAddress >= limitPerAddress_)
    {
        if (ofAddress == 0)
        {
            byAddress_.erase(network);
        }
        return false;
    }
    ++ofAddress;
    ++count_;
    return true;
}

void AddressLimiter::giveBack(const SocketAddress::Key& address)
{
    const MutexLock guard(mutex_);
    const auto found = byAddress_.find(SocketAddress::networkOf(address));
    if (found == byAddress_.end())
    {
        return;
    }
    --count_;
    if (--found->second == 0)
    {
        byAddress_.erase(found);
    }
}

void AddressLimiter::setLimits(int limit, int limitPerAddress)
{
    const MutexLock guard(mutex_);
    limit_ = static_cast<std::size_t>(limit);
    limitPerAddress_ = limitPerAddress;
}

std::size_t AddressLimiter::count() const
{
    const MutexLock guard(mutex_);
    return count_;
}

}  // namespace refhost

#pragma once
// Tested by tests/refhost/access/LoginBrake_test.cpp.

#include <cstddef>
#include <cstdint>
#include <list>
#include <unordered_map>
#include <utility>

#include "refhost/base/SocketAddress.h"

namespace refhost
{

/// Values by network and user, at most `max` of them: a further one replaces the one touched longest ago.
/// Threads: one at a time.
template <typename Value>
class RecentTable
{
public:
    struct Key
    {
        SocketAddress::Key network{};
        std::uint64_t user = 0;  ///< hash of the user's name; 0 for all users

        bool operator==(const Key& other) const
        {
            return user == other.user && network == other.network;
        }
    };

    explicit RecentTable(std::size_t max) : max_(max) {}

    /// \returns null when there is none
    Value* find(const Key& key)
    {
        const auto found = places_.find(key);
        return found == places_.end() ? nullptr : &found->second->second;
    }

    /// The value, a new one when there was none, as the one touched last.
    Value& touch(const Key& key)
    {
        const auto found = places_.find(key);
        if (found != places_.end())
        {
            order_.splice(order_.begin(), order_, found->second);
            return found->second->second;
        }
        if (order_.size() >= max_)
        {
            places_.erase(order_.back().first);
            order_.pop_back();
        }
        order_.emplace_front(key, Value());
        places_.emplace(key, order_.begin());
        return order_.front().second;
    }

    void erase(const Key& key)
    {
        const auto found = places_.find(key);
        if (found != places_.end())
        {
            order_.erase(found->second);
            places_.erase(found);
        }
    }

    std::size_t size() const
    {
        return order_.size();
    }

private:
    struct KeyHash
    {
        std::size_t operator()(const Key& key) const noexcept
        {
            return SocketAddress::KeyHash()(key.network) ^ static_cast<std::size_t>(key.user);
        }
    };
    using Order = std::list<std::pair<Key, Value>>;

    const std::size_t max_;
    Order order_;  // touched last first
    std::unordered_map<Key, typename Order::iterator, KeyHash> places_;
};

}  // namespace refhost

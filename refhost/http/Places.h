#pragma once
// Tested by tests/refhost/http/ExportRoutes_test.cpp, tests/refhost/http/RecordedLive_test.cpp.

#include <atomic>
#include <memory>

namespace refhost
{

/// Bounds how much of a kind is under way at once. Threads: any.
class Places
{
public:
    /// One of them, while it lives.
    using Place = std::shared_ptr<void>;

    explicit Places(int max) : max_(max) {}

    /// \returns null when there are too many
    Place take()
    {
        auto free = std::make_shared<Freeing>(count_);
        return count_->fetch_add(1) < max_ ? free : nullptr;
    }

private:
    struct Freeing
    {
        explicit Freeing(std::shared_ptr<std::atomic<int>> counted) : count(std::move(counted)) {}
        Freeing(const Freeing&) = delete;
        Freeing& operator=(const Freeing&) = delete;
        ~Freeing()
        {
            --*count;
        }
        const std::shared_ptr<std::atomic<int>> count;
    };

    const int max_;
    const std::shared_ptr<std::atomic<int>> count_ = std::make_shared<std::atomic<int>>(0);
};

}  // namespace refhost

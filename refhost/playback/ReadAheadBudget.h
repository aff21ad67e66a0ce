#pragma once

#include <atomic>
#include <cstddef>

namespace refhost
{

/// The memory that all playback sessions share for reading ahead: an equal part each, but never less than
/// `minEach`. Threads: any.
class ReadAheadBudget
{
public:
    /// Enough for an efficient read.
    static constexpr std::size_t minEach = std::size_t{64} * 1024;

    /// One session's part, for as long as it lives.
    class Share
    {
    public:
        /// \param budget  outlives the share
        explicit Share(ReadAheadBudget& budget);
        ~Share();
        Share(const Share&) = delete;
        Share& operator=(const Share&) = delete;

        /// Bytes of packets that the session may read ahead now.
        std::size_t bytes() const;

    private:
        ReadAheadBudget& budget_;
    };

    /// The process's budget, 16 MiB.
    static ReadAheadBudget& system();

    explicit ReadAheadBudget(std::size_t total);

private:
    const std::size_t total_;
    std::atomic<std::size_t> shares_{0};
};

}  // namespace refhost

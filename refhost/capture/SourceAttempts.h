#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

namespace refhost
{

/// Decides how a stream goes on when its source fails: at once by other means of reading it, again after a
/// moment, or, reported as a failure, after a pause that grows.
///
/// Threads: one at a time.
class SourceAttempts
{
public:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    enum class Next
    {
        otherMeans,  ///< as soon as the failed run has ended; no failure is reported
        again,       ///< the same means after againPause(); no failure is reported
        failed,      ///< after restartPause(), as long as somebody needs the source
    };

    /// After a run of this length, restart pauses begin with the first one again.
    static constexpr std::chrono::seconds goodRun{20};
    /// How often the means of reading the source change without a failure between.
    static constexpr unsigned maxSwitches = 2;
    /// How often the same means are tried again without a failure between.
    static constexpr std::size_t maxRepeats = 2;

    /// \param restartPauses  before the first, second, … restart after failures; the last one repeats; not empty
    explicit SourceAttempts(std::vector<Milliseconds> restartPauses);

    /// Number of changes of means so far, as SourceRun::Setup::attempt.
    unsigned means() const
    {
        return means_;
    }

    /// Forgets all attempts: the source is another one.
    void reset();
    void onStart(Clock::time_point now);
    /// The source delivers what can be described.
    void onDescribed();
    /// Nobody waits for a further attempt: the next failure is reported.
    void giveUp();

    /// \param otherMeans  the source may be readable by other means
    Next onFailure(bool otherMeans, Clock::time_point now);

    /// The pause of Next::again: a camera may be busy for a moment with what was closed before.
    Milliseconds againPause() const;
    /// The pause of Next::failed, up to half longer at random: cameras that failed together, as when a switch
    /// lost power, start one by one.
    Milliseconds restartPause() const;

private:
    const std::vector<Milliseconds> restartPauses_;
    Clock::time_point startedAt_;
    unsigned means_ = 0;
    unsigned switches_ = 0;     ///< since the last success or failure
    std::size_t repeats_ = 0;   ///< likewise
    std::size_t failures_ = 0;  ///< in a row
};

}  // namespace refhost

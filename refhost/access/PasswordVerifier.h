#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "refhost/base/HostClock.h"
#include "refhost/base/Mutex.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/base/Times.h"
#include "refhost/threads/WorkPool.h"

namespace refhost
{

/// Checks passwords against memory-hard hashes on one thread of its own, so that no event loop waits and
/// guessers can take no more than that.
///
/// An attempt is known by a keyed digest of its user, password and hash; the password itself is forgotten once
/// it is checked. A right one is remembered for `lifetime`, so that a client's further requests cost nothing; a
/// wrong one until it was asked for, at most as long.
///
/// Threads: any; one lock of its own.
class PasswordVerifier
{
public:
    enum class Result
    {
        right,
        wrong,
        pending,  ///< ask again when the function given to the constructor is called
        busy      ///< too many attempts wait
    };

    struct Attempt
    {
        std::string user;
        std::string password;
        std::string hash;
        /// The result where it is known already: the check only takes its time, as that of other users does.
        std::optional<bool> known{};
    };

    static constexpr std::chrono::minutes lifetime{1};
    static constexpr std::size_t maxRemembered = 1024;
    static constexpr std::size_t maxWaiting = 64;
    static constexpr std::size_t maxWaitingPerAddress =
        8;  ///< as SocketAddress::networkOf() counts addresses

    /// \param clock     outlives the verifier
    /// \param finished  called on the verifier's thread, without its lock, when attempts were checked
    PasswordVerifier(const HostClock& clock, std::function<void()> finished);
    /// Waits for the check that runs.
    ~PasswordVerifier();
    PasswordVerifier(const PasswordVerifier&) = delete;
    PasswordVerifier& operator=(const PasswordVerifier&) = delete;

    Result check(const Attempt& attempt, const SocketAddress::Key& address);

    /// Attempts that wait, run or are remembered.
    std::size_t size() const;

private:
    class Work;
    struct Entry
    {
        Result result = Result::pending;
        MonotonicTime until;
    };
    struct Waiting
    {
        std::string id;
        Attempt attempt;
        SocketAddress::Key network;
    };

    std::string idOf(const Attempt& attempt) const;
    bool checkNext();
    void forget(MonotonicTime now) OV_REQUIRES(mutex_);

    const HostClock& clock_;
    const std::function<void()> finished_;
    const std::string key_;
    mutable Mutex mutex_;
    std::unordered_map<std::string, Entry> entries_ OV_GUARDED_BY(mutex_);
    std::deque<std::string> checked_ OV_GUARDED_BY(mutex_);  // ids in the order of their ends; some are gone
    std::deque<Waiting> waiting_ OV_GUARDED_BY(mutex_);
    const std::shared_ptr<Work> work_;
    WorkPool pool_;  // last: its thread ends first
};

}  // namespace refhost

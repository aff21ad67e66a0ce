#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

/// What a test sees and steers of the fake host: which host calls the library made, what they answer, how
/// late it is, and what is still alive.
///
/// A call is named by class and operation, "MediaInfoTool::createMediaInfo". Objects of which there are
/// several carry their number in the order of their construction since the last reset:
/// "AudioDispatcher#2::play". Two numbered names also answer to the name without the number. Threads: any;
/// does its own locking and calls nothing while it holds it. Life: made at the first use and never destroyed,
/// because singletons of the library call it at process exit.
class FakeHost
{
public:
    /// One host call.
    struct Call
    {
        /// "Class::operation" or "Class#number::operation".
        std::string name;
        /// Name and arguments, "Class::operation(text, 3)".
        std::string text;
        /// How many OVMutex locks the calling thread held.
        int locksHeld;
    };

    /// Outcome of a scripted call: its result and, for operations with a player-fault flag, whether it sets
    /// the flag.
    struct Outcome
    {
        Outcome(int code) : result(code)  // NOLINT: a plain code is the common case in scripts
        {
        }
        Outcome(int code, bool fault) : result(code), playerFault(fault) {}

        int result;
        bool playerFault = false;
    };

    static FakeHost& instance();

    /// Resets the host: empty log, no scripts, clock at 0, numbering from 1. Living objects stay alive.
    void reset();

    // --- the log ------------------------------------------------------------------------------------------

    /// Switches the log on or off (it is on); while it is off a call that is not scripted allocates nothing.
    void recordCalls(bool on);
    /// Also logs every OVMutex::Lock, Unlock and Init (off at first), because they are many.
    void recordLocks(bool on);
    /// Texts of the calls so far in order.
    std::vector<std::string> calls() const;
    /// The calls so far with all details.
    std::vector<Call> callDetails() const;
    /// How many of the calls have this name; with or without number.
    std::size_t callCount(const std::string& name) const;
    void clearCalls();

    // --- scripts ------------------------------------------------------------------------------------------

    /// The next calls of this name have these outcomes in order; later ones are not scripted.
    void script(const std::string& name, const std::vector<Outcome>& outcomes);
    /// Every call of this name has this outcome from now on, after those queued by script().
    void always(const std::string& name, const Outcome& outcome);
    /// The nth call from now (1 is the next) among all calls that can fail ends with `code`, whatever its
    /// name.
    void failNthCall(int nth, int code);
    /// True when failNthCall() has struck since it was set.
    bool failureStruck() const;

    // --- the clock ----------------------------------------------------------------------------------------

    /// Time since reset(). Only waits and advance() let it pass.
    std::chrono::microseconds now() const;
    void advance(std::chrono::microseconds span);
    /// The spans of every OrvaneTime::wait so far.
    std::vector<std::chrono::microseconds> waits() const;

    // --- threads ------------------------------------------------------------------------------------------

    /// Whether GThread::start() makes a real thread (it does) or only says so; then no body ever runs.
    void runThreads(bool on);
    bool threadsRun() const;
    /// Waits until bodies of threads have run `count` times in all since reset().
    /// \returns false when that took more than ten seconds of real time
    bool waitForRuns(std::size_t count);

    // --- conversions --------------------------------------------------------------------------------------

    /// Whether DataConverter reads an empty text as 0 (it refuses it): the library must not count on a strict
    /// converter.
    void readEmptyTextAsZero(bool on);
    bool readsEmptyTextAsZero() const;

    // --- what lives ---------------------------------------------------------------------------------------

    /// How many objects of a host class ("OVMutex", "GThread", "AudioDispatcher", "MediaInfoTool", …) live.
    int living(const std::string& className) const;
    /// How many objects are held by handles now, that is: count records in use.
    std::size_t recordsInUse() const;

    // --- for the classes of the fake ----------------------------------------------------------------------

    /// Records a call that has no result.
    void called(const char* className, int number, const char* operation, const std::string& arguments);
    void called(const char* className, int number, const char* operation);
    /// Records a call and returns its outcome. `usual` is the result without a script.
    Outcome outcomeOf(const char* className, int number, const char* operation, const std::string& arguments,
                      int usual);
    Outcome outcomeOf(const char* className, int number, const char* operation, int usual);
    /// True while arguments are not recorded, so that callers need not build their text.
    bool isQuiet() const;
    void born(const char* className);
    void died(const char* className);
    int nextNumber(const char* className);
    void waited(std::chrono::microseconds span);
    void bodyRan();
    bool wantsLocks() const;
    /// Locks held by the calling thread; OVMutex counts them.
    static int& locksHeldHere();

private:
    FakeHost() = default;

    void append(const char* className, int number, const char* operation, const std::string& arguments);
    bool takeScripted(const std::string& name, Outcome& outcome);

    std::atomic<bool> emptyTextIsZero_{false};
    mutable std::mutex mutex_;
    std::condition_variable ran_;
    bool recordCalls_ = true;
    bool recordLocks_ = false;
    bool runThreads_ = true;
    std::vector<Call> calls_;
    std::map<std::string, std::deque<Outcome>> queues_;
    std::map<std::string, Outcome> standing_;
    int failIn_ = 0;
    int failCode_ = 0;
    bool failureStruck_ = false;
    std::chrono::microseconds now_{0};
    std::vector<std::chrono::microseconds> waits_;
    std::size_t runs_ = 0;
    std::map<std::string, int> living_;
    std::map<std::string, int> numbers_;
};

#include "tests/fakehost/FakeHost.h"

#include "tests/fakehost/RefCountInspector.h"

namespace
{

std::string callName(const char* className, int number, const char* operation)
{
    std::string name = className;
    if (number != 0)
    {
        name += "#" + std::to_string(number);
    }
    return name + "::" + operation;
}

std::string withoutNumber(const std::string& name)
{
    const std::size_t hash = name.find('#');
    return hash == std::string::npos ? name : name.substr(0, hash) + name.substr(name.find("::", hash));
}

const std::string noArguments;

}  // namespace

FakeHost& FakeHost::instance()
{
    static FakeHost* const host = new FakeHost;
    return *host;
}

void FakeHost::reset()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    recordCalls_ = true;
    recordLocks_ = false;
    runThreads_ = true;
    emptyTextIsZero_ = false;
    calls_.clear();
    queues_.clear();
    standing_.clear();
    failIn_ = 0;
    failureStruck_ = false;
    now_ = std::chrono::microseconds{0};
    waits_.clear();
    runs_ = 0;
    numbers_.clear();
}

void FakeHost::recordCalls(bool on)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    recordCalls_ = on;
}

void FakeHost::recordLocks(bool on)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    recordLocks_ = on;
}

std::vector<std::string> FakeHost::calls() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> texts;
    for (const Call& call : calls_)
    {
        texts.push_back(call.text);
    }
    return texts;
}

std::vector<FakeHost::Call> FakeHost::callDetails() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

std::size_t FakeHost::callCount(const std::string& name) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    std::size_t count = 0;
    for (const Call& call : calls_)
    {
        count += call.name == name || withoutNumber(call.name) == name ? 1 : 0;
    }
    return count;
}

void FakeHost::clearCalls()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.clear();
}

void FakeHost::script(const std::string& name, const std::vector<Outcome>& outcomes)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    queues_[name].assign(outcomes.begin(), outcomes.end());
}

void FakeHost::always(const std::string& name, const Outcome& outcome)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    standing_.insert_or_assign(name, outcome);
}

void FakeHost::failNthCall(int nth, int code)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    failIn_ = nth;
    failCode_ = code;
    failureStruck_ = false;
}

bool FakeHost::failureStruck() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return failureStruck_;
}

std::chrono::microseconds FakeHost::now() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return now_;
}

void FakeHost::advance(std::chrono::microseconds span)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    now_ += span;
}

std::vector<std::chrono::microseconds> FakeHost::waits() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return waits_;
}

void FakeHost::waited(std::chrono::microseconds span)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    now_ += span;
    if (recordCalls_)
    {
        waits_.push_back(span);
    }
}

void FakeHost::runThreads(bool on)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    runThreads_ = on;
}

bool FakeHost::threadsRun() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return runThreads_;
}

void FakeHost::readEmptyTextAsZero(bool on)
{
    emptyTextIsZero_ = on;
}

bool FakeHost::readsEmptyTextAsZero() const
{
    return emptyTextIsZero_;
}

bool FakeHost::waitForRuns(std::size_t count)
{
    std::unique_lock<std::mutex> lock(mutex_);
    return ran_.wait_for(lock, std::chrono::seconds(10), [&] { return runs_ >= count; });
}

void FakeHost::bodyRan()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    ++runs_;
    ran_.notify_all();
}

int FakeHost::living(const std::string& className) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = living_.find(className);
    return found == living_.end() ? 0 : found->second;
}

std::size_t FakeHost::recordsInUse() const
{
    return RefCountInspector::recordsInUse();
}

void FakeHost::called(const char* className, int number, const char* operation, const std::string& arguments)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    append(className, number, operation, arguments);
}

void FakeHost::called(const char* className, int number, const char* operation)
{
    called(className, number, operation, noArguments);
}

FakeHost::Outcome FakeHost::outcomeOf(const char* className, int number, const char* operation,
                                      const std::string& arguments, int usual)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    append(className, number, operation, arguments);
    if (failIn_ > 0 && --failIn_ == 0)
    {
        failureStruck_ = true;
        return failCode_;
    }
    Outcome outcome(usual);
    if (queues_.empty() && standing_.empty())
    {
        return outcome;
    }
    const std::string name = callName(className, number, operation);
    if (!takeScripted(name, outcome) && number != 0)
    {
        takeScripted(withoutNumber(name), outcome);
    }
    return outcome;
}

FakeHost::Outcome FakeHost::outcomeOf(const char* className, int number, const char* operation, int usual)
{
    return outcomeOf(className, number, operation, noArguments, usual);
}

bool FakeHost::takeScripted(const std::string& name, Outcome& outcome)
{
    const auto queue = queues_.find(name);
    if (queue != queues_.end() && !queue->second.empty())
    {
        outcome = queue->second.front();
        queue->second.pop_front();
        return true;
    }
    const auto standing = standing_.find(name);
    if (standing != standing_.end())
    {
        outcome = standing->second;
        return true;
    }
    return false;
}

bool FakeHost::isQuiet() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return !recordCalls_;
}

void FakeHost::append(const char* className, int number, const char* operation, const std::string& arguments)
{
    if (recordCalls_)
    {
        const std::string name = callName(className, number, operation);
        calls_.push_back({name, name + "(" + arguments + ")", locksHeldHere()});
    }
}

void FakeHost::born(const char* className)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    ++living_[className];
}

void FakeHost::died(const char* className)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    --living_[className];
}

int FakeHost::nextNumber(const char* className)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return ++numbers_[className];
}

bool FakeHost::wantsLocks() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return recordLocks_;
}

int& FakeHost::locksHeldHere()
{
    static thread_local int held = 0;
    return held;
}

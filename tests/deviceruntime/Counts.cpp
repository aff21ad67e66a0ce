// The device's counts, locks, time, conversions and threads.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <thread>

#include "hostapi/base/DataConverter.h"
#include "hostapi/base/OVMutex.h"
#include "hostapi/base/OrvaneTime.h"
#include "hostapi/base/RefCountManager.h"
#include "hostapi/threads/GThread.h"

namespace
{

struct Record : ref_count
{
    std::atomic<bool> taken{false};
    std::atomic<void*> object{nullptr};
    mutable std::atomic<int> holders{0};
};

// One lock for all records' addresses; records are never freed.
struct Table : RefCountManager
{
    std::mutex mutex;
    std::map<void*, Record*> used;
};

Table& table()
{
    static Table* const instance = new Table;
    return *instance;
}

Record& own(ref_count* record)
{
    return *static_cast<Record*>(record);
}

struct Worker
{
    function<int> run;
    std::atomic<bool> running{false};
    std::thread thread;
};

}  // namespace

RefCountManager* RefCountManager::getInstance()
{
    return &table();
}

ref_count* RefCountManager::retrieveRefCount(void* object, const char*)
{
    const std::lock_guard<std::mutex> guard(table().mutex);
    Record*& record = table().used[object];
    if (record == nullptr)
    {
        record = new Record;
        record->object = object;
    }
    ++record->holders;
    return record;
}

void RefCountManager::returnbackRefCount(ref_count* record, const char*)
{
    own(record).object = nullptr;
}

int ref_count::lock()
{
    while (own(this).taken.exchange(true))
    {
        std::this_thread::yield();
    }
    if (own(this).object == nullptr)
    {
        unLock();
        return -1;
    }
    return 0;
}

void ref_count::unLock()
{
    own(this).taken = false;
}

void* ref_count::getPointer()
{
    return own(this).object;
}

int ref_count::inc_reference() const
{
    const Record& record = *static_cast<const Record*>(this);
    return record.holders > 0 ? ++record.holders : 0;
}

int ref_count::dec_reference()
{
    const std::lock_guard<std::mutex> guard(table().mutex);
    const int left = --own(this).holders;
    if (left == 0)
    {
        table().used.erase(own(this).object);
    }
    return left;
}

OVMutex::OVMutex() : system_(new std::mutex) {}

OVMutex::~OVMutex()
{
    delete static_cast<std::mutex*>(system_);
}

int OVMutex::Init()
{
    return 0;
}

void OVMutex::Lock(const char*, int)
{
    static_cast<std::mutex*>(system_)->lock();
}

void OVMutex::Unlock(const char*, int)
{
    static_cast<std::mutex*>(system_)->unlock();
}

OrvaneTime::OrvaneTime(long seconds, long microseconds) : seconds_(seconds), microseconds_(microseconds) {}

void OrvaneTime::wait(const OrvaneTime& span)
{
    std::this_thread::sleep_for(std::chrono::seconds(span.seconds_) +
                                std::chrono::microseconds(span.microseconds_));
}

bool DataConverter::convert(const std::string& text, int& number)
{
    char rest = 0;
    return std::sscanf(text.c_str(), "%d%c", &number, &rest) == 1;
}

bool DataConverter::convert(const std::string& text, double& number)
{
    number = std::strtod(text.c_str(), nullptr);
    return true;
}

bool DataConverter::convert(const int& number, std::string& text)
{
    text = std::to_string(number);
    return true;
}

bool DataConverter::convert(const unsigned long& number, std::string& text)
{
    text = std::to_string(number);
    return true;
}

bool DataConverter::convert(const double& number, std::string& text)
{
    text = std::to_string(number);
    return true;
}

OVThread::OVThread() : state_(nullptr) {}

OVThread::~OVThread() noexcept(false) {}

bool OVThread::IsRunning()
{
    return static_cast<Worker*>(state_)->running;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value in the host contract
GThread::GThread(function<int> run, const std::string&, function<int>, function<int>) : body_(nullptr)
{
    state_ = new Worker{run, {false}, {}};
}

GThread::~GThread() noexcept(false)
{
    stop();
    delete static_cast<Worker*>(state_);
}

int GThread::start()
{
    Worker* const worker = static_cast<Worker*>(state_);
    worker->running = true;
    worker->thread = std::thread(
        [worker]
        {
            while (worker->running)
            {
                worker->run();
            }
        });
    return 1;
}

void GThread::stop()
{
    Worker* const worker = static_cast<Worker*>(state_);
    worker->running = false;
    if (worker->thread.joinable())
    {
        worker->thread.join();
    }
}

int GThread::emptyFun()
{
    return 0;
}

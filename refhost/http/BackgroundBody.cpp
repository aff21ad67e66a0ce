#include "refhost/http/BackgroundBody.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "refhost/base/Log.h"

namespace refhost
{

std::shared_ptr<BackgroundBody> BackgroundBody::make(BackgroundWork& work, BackgroundWork::Permit permit,
                                                     std::unique_ptr<BodyProducer> producer)
{
    return std::shared_ptr<BackgroundBody>(new BackgroundBody(work, std::move(permit), std::move(producer)));
}

BackgroundBody::BackgroundBody(BackgroundWork& work, BackgroundWork::Permit permit,
                               std::unique_ptr<BodyProducer> producer)
    : work_(work), producer_(std::move(producer)), permit_(std::move(permit))
{
}

void BackgroundBody::start(std::function<void()> wake)
{
    {
        const MutexLock guard(mutex_);
        wake_ = std::move(wake);
    }
    work_.wake(shared_from_this());
}

BodySource::State BackgroundBody::read(std::size_t room, std::string& out)
{
    bool makeMore = false;
    State state = State::more;
    {
        const MutexLock guard(mutex_);
        const std::size_t count = std::min(room, ahead_.size() - taken_);
        out.append(ahead_, taken_, count);
        const bool wasAmple = ahead_.size() - taken_ >= batch;
        taken_ += count;
        const std::size_t left = ahead_.size() - taken_;
        if (left == 0)
        {
            ahead_ = std::string();
            taken_ = 0;
            state = end_ == State::more ? State::waiting : end_;
        }
        makeMore = wasAmple && left < batch && end_ == State::more;
    }
    if (makeMore)
    {
        work_.wake(shared_from_this());
    }
    return state;
}

void BackgroundBody::cancel()
{
    {
        const MutexLock guard(mutex_);
        cancelled_ = true;
        wake_ = nullptr;
        ahead_ = std::string();
        taken_ = 0;
    }
    // The producer is destroyed where it runs: closing its files may take time.
    work_.wake(shared_from_this());
}

void BackgroundBody::finish(State end)
{
    producer_.reset();
    const MutexLock guard(mutex_);
    end_ = end;
    permit_.reset();
}

MonotonicTime BackgroundBody::run(MonotonicTime /*now*/)
{
    if (producer_ == nullptr)
    {
        return never;
    }
    bool cancelled = false;
    {
        const MutexLock guard(mutex_);
        if (!cancelled_ && ahead_.size() - taken_ >= maxAhead)
        {
            return never;
        }
        cancelled = cancelled_;
    }
    std::string made;
    State end = cancelled ? State::failed : State::ended;
    bool goesOn = false;
    try
    {
        goesOn = !cancelled;
        while (goesOn && made.size() < batch)
        {
            goesOn = producer_->produce(made);
        }
    }
    catch (const std::exception& error)
    {
        Log::warning("HTTP: a reply cannot be completed: {}", Log::safe(error.what()));
        end = State::failed;
        goesOn = false;
    }
    std::function<void()> wake;
    bool full = false;
    {
        const MutexLock guard(mutex_);
        if (!cancelled_)
        {
            ahead_.erase(0, std::exchange(taken_, 0));
            ahead_.append(made);
        }
        full = ahead_.size() >= maxAhead;
        wake = wake_;
    }
    if (!goesOn)
    {
        finish(end);
    }
    else if (!full)
    {
        work_.wake(shared_from_this());
    }
    if (wake)
    {
        wake();
    }
    return never;
}

}  // namespace refhost

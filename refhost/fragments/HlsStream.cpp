#include "refhost/fragments/HlsStream.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <utility>

#include "refhost/base/Hex.h"
#include "refhost/base/RandomBytes.h"

namespace refhost
{
namespace
{

/// How often deadlines are looked at.
constexpr Duration tick = std::chrono::seconds(1);
constexpr std::int64_t year2020 = 1577836800;

std::string randomName()
{
    std::array<std::uint8_t, 6> bytes{};
    fillRandom(bytes.data(), bytes.size());
    std::string name;
    for (const std::uint8_t byte : bytes)
    {
        appendHex8(name, byte);
    }
    return name;
}

/// Segments are a second long and more: their numbers grow more slowly than those that later starts begin with.
std::uint64_t firstSegment(const HostClock& clock)
{
    return static_cast<std::uint64_t>(std::max<std::int64_t>(unixSeconds(clock.wallNow()) - year2020, 0));
}

}  // namespace

std::shared_ptr<HlsStream> HlsStream::start(std::shared_ptr<TappedStream> stream, WorkPool& pool,
                                            const HostClock& clock)
{
    std::shared_ptr<HlsStream> made(new HlsStream(std::move(stream), clock));
    const MutexLock lock(made->mutex_);
    made->viewer_ = std::make_unique<FragmentViewer>(made->stream_, true,
                                                     [weak = made->weak_from_this(), &pool]
                                                     {
                                                         if (const auto held = weak.lock())
                                                         {
                                                             pool.wake(held);
                                                         }
                                                     });
    pool.wake(made);
    return made;
}

HlsStream::HlsStream(std::shared_ptr<TappedStream> stream, const HostClock& clock)
    : stream_(std::move(stream)),
      clock_(clock),
      window_(randomName(), firstSegment(clock)),
      asked_(clock.now()),
      looked_(asked_)
{
}

bool HlsStream::touch()
{
    const MutexLock lock(mutex_);
    asked_ = clock_.now();
    return !ended_;
}

void HlsStream::ask(HlsQuery query, std::shared_ptr<const std::atomic<bool>> cancelled, Respond respond)
{
    HlsFound found;
    {
        const MutexLock lock(mutex_);
        asked_ = clock_.now();
        if (!ended_)
        {
            found = window_.find(query);
        }
        if (found.state == HlsFound::State::awaited)
        {
            if (waiting_.size() >= maxWaiting)
            {
                forgetCancelled();
            }
            if (waiting_.size() < maxWaiting)
            {
                const Duration max =
                    found.target > 0 ? Duration(std::chrono::seconds(maxTargets * found.target)) : maxStart;
                waiting_.push_back(
                    {std::move(query), asked_ + max, std::move(cancelled), std::move(respond)});
                return;
            }
        }
    }
    respond(found);
}

void HlsStream::end()
{
    std::vector<Answer> answers;
    std::unique_ptr<FragmentViewer> viewer;
    {
        const MutexLock lock(mutex_);
        ended_ = true;
        takeAnswers(answers);
        viewer = std::move(viewer_);
        window_ = HlsWindow("", 0);
    }
    for (const Answer& answer : answers)
    {
        answer.respond(answer.found);
    }
}

std::size_t HlsStream::waiting() const
{
    const MutexLock lock(mutex_);
    return waiting_.size();
}

MonotonicTime HlsStream::run(MonotonicTime now)
{
    std::vector<Answer> answers;
    bool idle = false;
    {
        const MutexLock lock(mutex_);
        if (ended_)
        {
            return never;
        }
        if (readAll() || clock_.now() - looked_ >= tick)
        {
            takeAnswers(answers);
        }
        idle = waiting_.empty() && clock_.now() - asked_ > maxIdle;
    }
    for (const Answer& answer : answers)
    {
        answer.respond(answer.found);
    }
    if (idle)
    {
        end();
        return never;
    }
    return now + tick;
}

/// Reads what the camera sent meanwhile. \returns whether queries may find more
bool HlsStream::readAll()
{
    bool more = false;
    for (;;)
    {
        const FragmentStream::Next next = viewer_->read();
        if (next.description)
        {
            window_.begin(*next.description);
        }
        else if (next.fragment != nullptr)
        {
            more = window_.add(next, clock_.wall().mapping().at(next.captured)) || more;
        }
        else
        {
            return more;
        }
    }
}

void HlsStream::takeAnswers(std::vector<Answer>& answers)
{
    forgetCancelled();
    const MonotonicTime now = clock_.now();
    looked_ = now;
    for (auto each = waiting_.begin(); each != waiting_.end();)
    {
        HlsFound found;
        if (!ended_)
        {
            found = window_.find(each->query);
        }
        if (found.state == HlsFound::State::awaited && now < each->deadline)
        {
            ++each;
            continue;
        }
        answers.push_back({std::move(each->respond), std::move(found)});
        each = waiting_.erase(each);
    }
}

void HlsStream::forgetCancelled()
{
    waiting_.remove_if([](const Waiting& each) { return each.cancelled->load(); });
}

HlsStreams::HlsStreams(std::shared_ptr<FragmentStreams> fragments, const HostClock& clock)
    : fragments_(std::move(fragments)), clock_(clock), pool_(WorkPool::Options{1, Duration::zero(), "hls"})
{
}

HlsStreams::~HlsStreams()
{
    const MutexLock lock(mutex_);
    for (const auto& [key, stream] : streams_)
    {
        stream->end();
    }
    // Those that a thread still runs end here, too.
    pool_.close();
}

std::shared_ptr<HlsStream> HlsStreams::find(int cameraId, int streamId)
{
    std::shared_ptr<TappedStream> tapped = fragments_->find(cameraId, streamId);
    const std::uint64_t key =
        std::uint64_t{static_cast<std::uint32_t>(cameraId)} << 32U | static_cast<std::uint32_t>(streamId);
    const MutexLock lock(mutex_);
    const auto found = streams_.find(key);
    if (found != streams_.end())
    {
        if (tapped != nullptr && found->second->tapped() == tapped && found->second->touch())
        {
            return found->second;
        }
        found->second->end();
        streams_.erase(found);
    }
    if (tapped == nullptr)
    {
        return nullptr;
    }
    return streams_[key] = HlsStream::start(std::move(tapped), pool_, clock_);
}

}  // namespace refhost

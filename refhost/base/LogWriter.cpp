#include "refhost/base/LogWriter.h"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <deque>
#include <string_view>
#include <thread>
#include <utility>

#include "refhost/base/ConditionVariable.h"

namespace refhost
{

struct LogWriter::State
{
    State(int output, std::function<std::string(std::size_t)> makeLost)
        : descriptor(output), lost(std::move(makeLost))
    {
    }

    bool idle() const OV_REQUIRES(mutex)
    {
        return lines.empty() && !writing && lostCount == 0;
    }

    /// Writes all of `text` unless abandoned() meanwhile. Requires: the lock is not held.
    void put(std::string_view text);

    bool abandoned()
    {
        const MutexLock guard(mutex);
        return stopping && std::chrono::steady_clock::now() >= giveUpAt;
    }

    const int descriptor;
    const std::function<std::string(std::size_t)> lost;

    Mutex mutex;
    ConditionVariable changed;
    std::deque<std::string> lines OV_GUARDED_BY(mutex);
    std::size_t bytes OV_GUARDED_BY(mutex) = 0;
    std::size_t lostCount OV_GUARDED_BY(mutex) = 0;
    bool writing OV_GUARDED_BY(mutex) = false;
    bool stopping OV_GUARDED_BY(mutex) = false;
    bool ended OV_GUARDED_BY(mutex) = false;
    std::chrono::steady_clock::time_point giveUpAt OV_GUARDED_BY(mutex);
};

void LogWriter::State::put(std::string_view text)
{
    constexpr int pollMilliseconds = 100;
    while (!text.empty())
    {
        pollfd output{descriptor, POLLOUT, 0};
        const int ready = poll(&output, 1, pollMilliseconds);
        if (abandoned() || (ready < 0 && errno != EINTR))
        {
            return;
        }
        if (ready <= 0)
        {
            continue;
        }
        // A pipe that is ready takes this much without blocking.
        const ssize_t written =
            ::write(descriptor, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
        if (written < 0 && errno != EINTR && errno != EAGAIN)
        {
            return;
        }
        text.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
}

LogWriter::LogWriter(int descriptor, std::function<std::string(std::size_t)> lost)
    : state_(std::make_shared<State>(descriptor, std::move(lost)))
{
    std::thread([state = state_] { run(state); }).detach();
}

LogWriter::~LogWriter()
{
    constexpr std::chrono::milliseconds patience(500);
    flush(patience);
    const MutexLock guard(state_->mutex);
    state_->stopping = true;
    state_->giveUpAt = std::chrono::steady_clock::now();
    state_->changed.notifyAll();
    while (!state_->ended && state_->changed.waitUntil(state_->mutex, state_->giveUpAt + patience))
    {
    }
}

void LogWriter::write(std::string line)
{
    const MutexLock guard(state_->mutex);
    // After a lost line, further ones are lost until the loss is reported, so that the report stands at the
    // gap.
    if (state_->lostCount > 0 || state_->lines.size() >= maxLines || state_->bytes + line.size() > maxBytes)
    {
        ++state_->lostCount;
        return;
    }
    state_->bytes += line.size();
    state_->lines.push_back(std::move(line));
    state_->changed.notifyAll();
}

bool LogWriter::flush(std::chrono::milliseconds deadline)
{
    const auto until = std::chrono::steady_clock::now() + deadline;
    const MutexLock guard(state_->mutex);
    while (!state_->idle() && state_->changed.waitUntil(state_->mutex, until))
    {
    }
    return state_->idle();
}

void LogWriter::run(const std::shared_ptr<State>& state)
{
    pthread_setname_np(pthread_self(), "log");
    const MutexLock guard(state->mutex);
    while (true)
    {
        while (!state->stopping && state->idle())
        {
            state->changed.wait(state->mutex);
        }
        if (state->lines.empty() && state->lostCount == 0)
        {
            break;
        }
        std::string line;
        std::size_t lostCount = 0;
        if (!state->lines.empty())
        {
            line = std::move(state->lines.front());
            state->lines.pop_front();
            state->bytes -= line.size();
        }
        else
        {
            lostCount = std::exchange(state->lostCount, 0);
        }
        state->writing = true;
        {
            const MutexUnlock unguarded(state->mutex);
            state->put(lostCount > 0 ? state->lost(lostCount) : line);
        }
        state->writing = false;
        state->changed.notifyAll();
    }
    state->ended = true;
    state->changed.notifyAll();
}

}  // namespace refhost

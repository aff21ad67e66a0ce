#include "refhost/base/LogWriter.h"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

namespace refhost
{

struct LogWriter::State
{
    State(int output, std::function<std::string(std::size_t)> makeLost)
        : descriptor(output), lost(std::move(makeLost))
    {
    }

    bool idle() const
    {
        return lines.empty() && !writing && lostCount == 0;
    }

    /// Writes all of `text` unless the state is abandoned meanwhile. Without the lock.
    void put(std::string_view text);

    bool abandoned()
    {
        const std::lock_guard<std::mutex> guard(mutex);
        return stopping && std::chrono::steady_clock::now() >= giveUpAt;
    }

    const int descriptor;
    const std::function<std::string(std::size_t)> lost;

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::string> lines;
    std::size_t bytes = 0;
    std::size_t lostCount = 0;
    bool writing = false;
    bool stopping = false;
    bool ended = false;
    std::chrono::steady_clock::time_point giveUpAt;
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
    std::unique_lock<std::mutex> guard(state_->mutex);
    state_->stopping = true;
    state_->giveUpAt = std::chrono::steady_clock::now();
    state_->changed.notify_all();
    state_->changed.wait_for(guard, patience, [this] { return state_->ended; });
}

void LogWriter::write(std::string line)
{
    const std::lock_guard<std::mutex> guard(state_->mutex);
    // Once lines are lost the next ones are, too, until there is room for the report: a log without gaps
    // within.
    if (state_->lostCount > 0 || state_->lines.size() >= maxLines || state_->bytes + line.size() > maxBytes)
    {
        ++state_->lostCount;
        return;
    }
    state_->bytes += line.size();
    state_->lines.push_back(std::move(line));
    state_->changed.notify_all();
}

bool LogWriter::flush(std::chrono::milliseconds deadline)
{
    std::unique_lock<std::mutex> guard(state_->mutex);
    return state_->changed.wait_for(guard, deadline, [this] { return state_->idle(); });
}

void LogWriter::run(const std::shared_ptr<State>& state)
{
    pthread_setname_np(pthread_self(), "log");
    std::unique_lock<std::mutex> guard(state->mutex);
    while (true)
    {
        state->changed.wait(guard, [&] { return state->stopping || !state->idle(); });
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
        guard.unlock();
        state->put(lostCount > 0 ? state->lost(lostCount) : line);
        guard.lock();
        state->writing = false;
        state->changed.notify_all();
    }
    state->ended = true;
    state->changed.notify_all();
}

}  // namespace refhost

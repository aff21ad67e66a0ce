#include "refhost/access/PasswordVerifier.h"

#include <glib.h>

#include <algorithm>
#include <utility>

#include "refhost/access/SlowHash.h"
#include "refhost/base/RandomBytes.h"

namespace refhost
{
namespace
{

std::string newKey()
{
    std::string key(32, '\0');
    fillRandom(key.data(), key.size());
    return key;
}

}  // namespace

/// One attempt in each go.
class PasswordVerifier::Work : public PooledWork
{
public:
    explicit Work(PasswordVerifier& owner) : owner_(owner) {}

    MonotonicTime run(MonotonicTime now) override
    {
        return owner_.checkNext() ? now : never;
    }

private:
    PasswordVerifier& owner_;  // whose pool drops this before it ends
};

PasswordVerifier::PasswordVerifier(const HostClock& clock, std::function<void()> finished)
    : clock_(clock),
      finished_(std::move(finished)),
      key_(newKey()),
      work_(std::make_shared<Work>(*this)),
      pool_(WorkPool::Options{1, Duration::zero(), "passwords"})
{
}

PasswordVerifier::~PasswordVerifier()
{
    pool_.close();
}

std::string PasswordVerifier::idOf(const Attempt& attempt) const
{
    const std::string text = attempt.hash + '\0' + attempt.user + '\0' + attempt.password;
    const std::unique_ptr<char, decltype(&g_free)> hex(
        g_compute_hmac_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(key_.data()), key_.size(),
                                reinterpret_cast<const guchar*>(text.data()), text.size()),
        &g_free);
    return std::string(hex.get()) + (attempt.known ? (*attempt.known ? "+" : "-") : "");
}

PasswordVerifier::Result PasswordVerifier::check(const Attempt& attempt, const SocketAddress::Key& address)
{
    const std::string id = idOf(attempt);
    const SocketAddress::Key network = SocketAddress::networkOf(address);
    const MonotonicTime now = clock_.now();
    {
        const MutexLock guard(mutex_);
        forget(now);
        const auto found = entries_.find(id);
        if (found != entries_.end())
        {
            const Result result = found->second.result;
            if (result == Result::wrong)
            {
                entries_.erase(found);
            }
            return result;
        }
        const auto ofAddress = static_cast<std::size_t>(std::count_if(waiting_.begin(), waiting_.end(),
                                                                      [&](const Waiting& other)
                                                                      { return other.network == network; }));
        if (waiting_.size() >= maxWaiting || ofAddress >= maxWaitingPerAddress)
        {
            return Result::busy;
        }
        entries_[id] = Entry();
        waiting_.push_back({id, attempt, network});
    }
    pool_.wake(work_);
    return Result::pending;
}

/// \returns whether more attempts wait
bool PasswordVerifier::checkNext()
{
    Waiting next;
    {
        const MutexLock guard(mutex_);
        if (waiting_.empty())
        {
            return false;
        }
        next = std::move(waiting_.front());
        waiting_.pop_front();
    }
    const bool same = SlowHash::verify(next.attempt.password, next.attempt.hash);
    const bool right = next.attempt.known.value_or(same);
    bool more = false;
    {
        const MutexLock guard(mutex_);
        entries_[next.id] = {right ? Result::right : Result::wrong, clock_.now() + lifetime};
        checked_.push_back(next.id);
        more = !waiting_.empty();
    }
    finished_();
    return more;
}

/// Forgets what is too old or too much.
void PasswordVerifier::forget(MonotonicTime now)
{
    while (!checked_.empty())
    {
        const auto oldest = entries_.find(checked_.front());
        const bool checked = oldest != entries_.end() && oldest->second.result != Result::pending;
        if (checked && oldest->second.until > now && checked_.size() <= maxRemembered)
        {
            return;
        }
        if (checked)
        {
            entries_.erase(oldest);
        }
        checked_.pop_front();
    }
}

std::size_t PasswordVerifier::size() const
{
    const MutexLock guard(mutex_);
    return entries_.size();
}

}  // namespace refhost

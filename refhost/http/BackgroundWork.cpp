#include "refhost/http/BackgroundWork.h"

#include <utility>

namespace refhost
{
namespace
{

class Task final : public PooledWork
{
public:
    Task(std::function<void()> task, BackgroundWork::Permit permit)
        : task_(std::move(task)), permit_(std::move(permit))
    {
    }

    MonotonicTime run(MonotonicTime /*now*/) override
    {
        std::exchange(task_, nullptr)();
        permit_.reset();
        return never;
    }

private:
    std::function<void()> task_;
    BackgroundWork::Permit permit_;
};

WorkPool::Options poolOptions()
{
    WorkPool::Options options;
    options.grain = Duration::zero();
    options.name = "http-work";
    return options;
}

}  // namespace

BackgroundWork::BackgroundWork(int max) : max_(static_cast<std::size_t>(max)), pool_(poolOptions()) {}

BackgroundWork::Permit BackgroundWork::admit()
{
    std::size_t now = count_->load();
    do
    {
        if (now == max_)
        {
            return nullptr;
        }
    } while (!count_->compare_exchange_weak(now, now + 1));
    return {count_.get(), [count = count_](std::atomic<std::size_t>*) { count->fetch_sub(1); }};
}

void BackgroundWork::run(std::function<void()> task, Permit permit)
{
    pool_.wake(std::make_shared<Task>(std::move(task), std::move(permit)));
}

void BackgroundWork::wake(const std::shared_ptr<PooledWork>& work)
{
    pool_.wake(work);
}

void BackgroundWork::close()
{
    pool_.close();
}

std::size_t BackgroundWork::count() const
{
    return count_->load();
}

}  // namespace refhost

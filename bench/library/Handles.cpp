#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "bench/library/TwoThreads.h"
#include "support/SafePointer.h"

namespace
{

constexpr int bursts = 2000;

struct Object
{
    virtual ~Object() = default;
    int value = 1;
};

}  // namespace

static void SharedPtrCopyAndRelease(benchmark::State& state)
{
    static const std::shared_ptr<Object> shared = std::make_shared<Object>();
    for (auto _ : state)
    {
        const std::shared_ptr<Object> copy(shared);
        benchmark::DoNotOptimize(copy.get());
    }
}
BENCHMARK(SharedPtrCopyAndRelease);

static void SharedPtrCopyAndReleaseByTwoThreads(benchmark::State& state)
{
    const std::shared_ptr<Object> shared = std::make_shared<Object>();
    TwoThreads::run(state,
                    [&shared]
                    {
                        // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): it is measured.
                        const std::shared_ptr<Object> copy(shared);
                        benchmark::DoNotOptimize(copy.get());
                    });
}
BENCHMARK(SharedPtrCopyAndReleaseByTwoThreads)->UseManualTime()->Iterations(bursts);

static void HandleCopyAndRelease(benchmark::State& state)
{
    static const SafePointer<Object> shared(new Object);
    for (auto _ : state)
    {
        const SafePointer<Object> copy(shared);
        benchmark::DoNotOptimize(copy.operator->());
    }
}
BENCHMARK(HandleCopyAndRelease);

static void HandleCopyAndReleaseByTwoThreads(benchmark::State& state)
{
    const SafePointer<Object> shared(new Object);
    TwoThreads::run(state,
                    [&shared]
                    {
                        // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): it is measured.
                        const SafePointer<Object> copy(shared);
                        benchmark::DoNotOptimize(copy.operator->());
                    });
}
BENCHMARK(HandleCopyAndReleaseByTwoThreads)->UseManualTime()->Iterations(bursts);

static void SharedPtrMake(benchmark::State& state)
{
    for (auto _ : state)
    {
        const std::shared_ptr<Object> made = std::make_shared<Object>();
        benchmark::DoNotOptimize(made.get());
    }
}
BENCHMARK(SharedPtrMake);
BENCHMARK(SharedPtrMake)->Threads(2)->UseRealTime();

static void HandleMakeFromRawPointer(benchmark::State& state)
{
    for (auto _ : state)
    {
        const SafePointer<Object> made(new Object);
        benchmark::DoNotOptimize(made.operator->());
    }
}
BENCHMARK(HandleMakeFromRawPointer);
BENCHMARK(HandleMakeFromRawPointer)->Threads(2)->UseRealTime();

/// As above, in a process where many other objects are held.
static void HandleMakeAmongManyObjects(benchmark::State& state)
{
    constexpr int count = 100000;
    std::vector<SafePointer<Object>> others;
    others.reserve(count);
    for (int i = 0; i < count; ++i)
    {
        others.push_back(SafePointer<Object>(new Object));
    }
    for (auto _ : state)
    {
        const SafePointer<Object> made(new Object);
        benchmark::DoNotOptimize(made.operator->());
    }
}
BENCHMARK(HandleMakeAmongManyObjects);

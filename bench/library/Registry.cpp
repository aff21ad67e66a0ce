#include <benchmark/benchmark.h>

#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "tests/fakehost/FakeHost.h"

static void RegistryLookup(benchmark::State& state)
{
    FakeHost::instance().recordCalls(false);
    const SafePointer<MediaUrlFactoryMap> registry = MediaUrlFactoryMap::getInstance();
    registry->registerFactory(1, SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
    for (auto _ : state)
    {
        SafePointer<IMediaUrlFactory> factory;
        benchmark::DoNotOptimize(registry->lookup(1, factory));
    }
    registry->unregisterFactory(1);
}
BENCHMARK(RegistryLookup);

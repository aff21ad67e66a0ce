#include <benchmark/benchmark.h>

#include <string>

#include "live/OVLiveControllerFactory.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "tests/fakehost/FakeHost.h"

/// A request's controller from the URL to the description, and its end.
static void CreateMedia(benchmark::State& state)
{
    FakeHost::instance().recordCalls(false);
    const SafePointer<MediaUrlFactoryMap> registry = MediaUrlFactoryMap::getInstance();
    registry->registerFactory(1, SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
    const SafePointer<OVLiveControllerFactory> factory(new OVLiveControllerFactory);
    factory->setThirdPlatType(1);
    DeviceInfoEx device;
    device.setDeviceID("device");
    factory->setDeviceInfo(device);

    const std::string url("rtsp://192.0.2.10:554/orv/live/12/2");
    int result = 0;
    for (auto _ : state)
    {
        SafePointer<IRTSPController> controller;
        result |= factory->createMedia(url, controller, false);
    }
    registry->unregisterFactory(1);
    if (result != 0)
    {
        state.SkipWithError("a controller was refused");
    }
}
BENCHMARK(CreateMedia);

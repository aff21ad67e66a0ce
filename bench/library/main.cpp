#include <benchmark/benchmark.h>

#include <future>
#include <thread>

// A second thread lives throughout: the C++ library's own counts are atomic only in a process that has one,
// as every host has.
int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
    {
        return 1;
    }
    std::promise<void> end;
    std::thread second([ended = end.get_future()] { ended.wait(); });
    benchmark::RunSpecifiedBenchmarks();
    end.set_value();
    second.join();
    return 0;
}

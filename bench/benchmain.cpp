#include <benchmark/benchmark.h>

#include <QCoreApplication>

// The journal fixtures use Qt SQL and file helpers, which want an application object alive while the
// benchmarks run.
int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

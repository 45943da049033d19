#include "tests/unit/support/Toolkit.h"

#include <benchmark/benchmark.h>

int main (int argc, char** argv)
{
    benchmark::Initialize (&argc, argv);
    restartToolkit();
    benchmark::RunSpecifiedBenchmarks();
    toolkit.reset();
    return 0;
}

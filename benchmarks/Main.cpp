// What a call on the library's wrappers costs beside the same call on the provider's own objects. `./run bench` prints
// the table.
#include "benchmarks/Cases.h"
#include "benchmarks/Provider.h"

int main(int argc, char** argv)
{
    Benchmarks::GetMapi();
    Benchmarks::AddCallCases();
    Benchmarks::AddListingCases();
    Benchmarks::AddRefusalCases();
    Benchmarks::AddLogCases();
    Benchmarks::AddThreadCases();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

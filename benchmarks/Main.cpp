// What a call on the library's wrappers costs beside the same call on the provider's own objects. `./run bench` prints
// the table.
#include "benchmarks/Cases.h"
#include "benchmarks/Provider.h"

int main(int argc, char** argv)
{
    Benchmarks::GetMapi();
    Benchmarks::AddSupportCases();
    for (const Benchmarks::Wrapping* const wrapping : {&Benchmarks::libraryWrapping, &Benchmarks::kitWrapping})
    {
        Benchmarks::AddCallCases(*wrapping);
        Benchmarks::AddListingCases(*wrapping);
        Benchmarks::AddRefusalCases(*wrapping);
        Benchmarks::AddThreadCases(*wrapping);
    }
    Benchmarks::AddLogCases();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

// Loading KivNst.dll and unloading it again.
#include <windows.h>

#include <benchmark/benchmark.h>

namespace
{

void LoadAndUnload(benchmark::State& state)
{
    for ([[maybe_unused]] auto _ : state)
    {
        const HMODULE module = LoadLibraryW(L"KivNst.dll");
        if (!module)
        {
            state.SkipWithError("KivNst.dll cannot be loaded");
            break;
        }
        FreeLibrary(module);
    }
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::RegisterBenchmark("load and unload/wrapper", LoadAndUnload);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

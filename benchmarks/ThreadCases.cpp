// A pass-through from several threads: on one object, where the reference pair is what they contend for, and on objects
// of their own.
#include "benchmarks/Cases.h"
#include "benchmarks/Provider.h"

namespace Benchmarks
{
namespace
{

void Call(benchmark::State& state, IMAPITable* table)
{
    for ([[maybe_unused]] auto _ : state)
        table->Abort();
    state.SetItemsProcessed(state.iterations());
}

void AddThreads(const Wrapping& wrapping, int threads)
{
    const std::string prefix = wrapping.prefix;
    const std::string suffix = ", threads " + std::to_string(threads);
    static IMAPITable* const shared = MakeTable(100);
    IMAPITable* const sharedWrapper = wrapping.table(shared);
    const auto add = [threads](const std::string& name, auto function)
    { benchmark::RegisterBenchmark(name.c_str(), function)->Threads(threads)->UseRealTime(); };
    add(prefix + "one object" + suffix + "/direct", [](benchmark::State& state) { Call(state, shared); });
    add(prefix + "one object" + suffix + "/wrapper",
        [sharedWrapper](benchmark::State& state) { Call(state, sharedWrapper); });
    add(prefix + "own objects" + suffix + "/direct",
        [](benchmark::State& state)
        {
            IMAPITable* const own = MakeTable(100);
            Call(state, own);
            own->Release();
        });
    add(prefix + "own objects" + suffix + "/wrapper",
        [wrap = wrapping.table](benchmark::State& state)
        {
            IMAPITable* const own = MakeTable(100);
            IMAPITable* const wrapper = wrap(own);
            Call(state, wrapper);
            wrapper->Release();
            own->Release();
        });
}

} // namespace

void AddThreadCases(const Wrapping& wrapping)
{
    for (const int threads : {1, 2, 4, 8})
        AddThreads(wrapping, threads);
}

} // namespace Benchmarks

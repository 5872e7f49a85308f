// A pass-through from several threads: on one object, where the reference pair is what they contend for, and on objects
// of their own.
#include "benchmarks/Cases.h"
#include "benchmarks/Provider.h"
#include "nst/NstMapiTable.h"

using Quillon::Nst::CNstMapiTable;

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

void AddThreads(int threads)
{
    const std::string suffix = ", threads " + std::to_string(threads);
    static IMAPITable* const shared = MakeTable(100);
    static IMAPITable* const sharedWrapper = new CNstMapiTable(shared);
    const auto add = [threads](const std::string& name, auto function)
    { benchmark::RegisterBenchmark(name.c_str(), function)->Threads(threads)->UseRealTime(); };
    add("one object" + suffix + "/direct", [](benchmark::State& state) { Call(state, shared); });
    add("one object" + suffix + "/wrapper", [](benchmark::State& state) { Call(state, sharedWrapper); });
    add("own objects" + suffix + "/direct",
        [](benchmark::State& state)
        {
            IMAPITable* const own = MakeTable(100);
            Call(state, own);
            own->Release();
        });
    add("own objects" + suffix + "/wrapper",
        [](benchmark::State& state)
        {
            IMAPITable* const own = MakeTable(100);
            IMAPITable* const wrapper = new CNstMapiTable(own);
            Call(state, wrapper);
            wrapper->Release();
            own->Release();
        });
}

} // namespace

void AddThreadCases()
{
    for (const int threads : {1, 2, 4, 8})
        AddThreads(threads);
}

} // namespace Benchmarks

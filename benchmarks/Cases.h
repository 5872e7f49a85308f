// How a case is told to Google Benchmark: the same call on up to three objects.
#pragma once

#include "benchmarks/Count.h"
#include "benchmarks/Wrapping.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <optional>
#include <string>

namespace Benchmarks
{

/// The provider's object, the smallest forwarder over it and the library's wrapper over it. A null one is left out.
/// They live as long as the program.
template <class I>
struct Objects
{
    I* direct;
    I* forwarder;
    I* wrapper;
};

/// Whether the instructions of a case are counted; a long case would take minutes.
enum class Counting
{
    On,
    Off
};

inline void Report(benchmark::State& state, const Tally& tally)
{
    state.counters["instructions"] = tally.instructions;
    state.counters["interlocked"] = tally.interlocked;
    state.counters["heap"] = tally.heap;
    state.counters["blocks"] = tally.blocks;
    state.counters["locks"] = tally.locks;
}

/// Registers "name/variant"; `prepare` is called in front of each repetition, for these are mixed with those of others.
template <class I, class Call>
void AddVariant(const std::string& name, const char* variant, I* object, Call call, Counting counting,
                void (*prepare)() = nullptr)
{
    if (!object)
        return;
    const auto counted = std::make_shared<std::optional<Tally>>();
    benchmark::RegisterBenchmark((name + "/" + variant).c_str(),
                                 [object, call, counting, prepare, counted](benchmark::State& state)
                                 {
                                     if (prepare)
                                         prepare();
                                     if (counting == Counting::On && !*counted)
                                     {
                                         // What is made at the first call is there then.
                                         call(object);
                                         const Tally empty = Count([] {});
                                         Tally tally = Count([&] { call(object); });
                                         tally.instructions -= empty.instructions;
                                         tally.interlocked -= empty.interlocked;
                                         *counted = tally;
                                     }
                                     if (*counted)
                                         Report(state, **counted);
                                     for ([[maybe_unused]] auto _ : state)
                                         call(object);
                                 });
}

/// Registers the case for each object.
template <class I, class Call>
void AddCase(const std::string& name, const Objects<I>& objects, Call call, Counting counting = Counting::On)
{
    AddVariant(name, "direct", objects.direct, call, counting);
    AddVariant(name, "forwarder", objects.forwarder, call, counting);
    AddVariant(name, "wrapper", objects.wrapper, call, counting);
}

/// The cases, by what they are about.
void AddCallCases(const Wrapping& wrapping);
void AddSupportCases();
void AddListingCases(const Wrapping& wrapping);
void AddRefusalCases(const Wrapping& wrapping);
void AddLogCases();
void AddThreadCases(const Wrapping& wrapping);

} // namespace Benchmarks

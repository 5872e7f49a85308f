// Calls that the read-only wrappers refuse, by where the line goes. Direct is the same call on the provider's object.
#include "benchmarks/Cases.h"
#include "benchmarks/Provider.h"
#include "support/Log.h"

using namespace Quillon;

namespace Benchmarks
{
namespace
{

void CALLBACK IgnoreLine(void*, const Logging::LogLine&) {}

void LogNowhere()
{
    Logging::TurnLogOff();
}

void LogToHost()
{
    Logging::SetLogSink(IgnoreLine, nullptr);
}

void LogToFile()
{
    Logging::LogToFile(L"benchmark.log");
}

void LogToDebugger()
{
    Logging::SetLogSink(nullptr, nullptr);
}

/// Registers the case with the log so set. What the debugger's sink does is not counted: it raises an exception.
template <class I, class Call>
void AddRefusal(const std::string& name, I* object, const char* variant, void (*setLog)(), Call call)
{
    AddVariant(name, variant, object, call, setLog == LogToDebugger ? Counting::Off : Counting::On, setLog);
}

template <class I, class Call>
void AddRefusals(const std::string& name, I* direct, I* wrapper, Call call)
{
    AddRefusal(name + ", log off", direct, "direct", LogNowhere, call);
    AddRefusal(name + ", log off", wrapper, "wrapper", LogNowhere, call);
    AddRefusal(name + ", line to a host's sink", wrapper, "wrapper", LogToHost, call);
    AddRefusal(name + ", line to a file", wrapper, "wrapper", LogToFile, call);
    AddRefusal(name + ", line to the debugger", wrapper, "wrapper", LogToDebugger, call);
}

/// The same refusal from several threads at once, each on a message of its own.
void AddThreads(const Wrapping& wrapping, const char* sink, void (*setLog)(), int threads)
{
    const std::string name = wrapping.prefix + (std::string("refusal/SaveChanges, ") + sink) + ", threads " +
                             std::to_string(threads) + "/wrapper";
    benchmark::RegisterBenchmark(name.c_str(),
                                 [setLog, make = wrapping.readOnlyMessage](benchmark::State& state)
                                 {
                                     if (state.thread_index() == 0)
                                         setLog();
                                     IMessage* const own = MakeMessage();
                                     IMessage* const wrapper = make(own);
                                     for ([[maybe_unused]] auto _ : state)
                                         wrapper->SaveChanges(0);
                                     wrapper->Release();
                                     own->Release();
                                 })
        ->Threads(threads)
        ->UseRealTime();
}

} // namespace

void AddRefusalCases(const Wrapping& wrapping)
{
    const std::string prefix = wrapping.prefix;
    IMessage* const message = MakeMessage();
    AddRefusals<IMessage>(prefix + "refusal/SaveChanges", message, wrapping.readOnlyMessage(message),
                          [](IMessage* object) { object->SaveChanges(0); });
    IMAPIFolder* const folder = MakeFolder(100);
    AddRefusals<IMAPIFolder>(prefix + "refusal/DeleteMessages", folder, wrapping.readOnlyFolder(folder),
                             [](IMAPIFolder* object) { object->DeleteMessages(nullptr, 0, nullptr, 0); });
    for (const int threads : {1, 8})
    {
        AddThreads(wrapping, "log off", LogNowhere, threads);
        AddThreads(wrapping, "line to a host's sink", LogToHost, threads);
        AddThreads(wrapping, "line to a file", LogToFile, threads);
    }
}

} // namespace Benchmarks

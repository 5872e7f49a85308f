// Calls that the read-only wrappers refuse, by where the line goes. Direct is the same call on the provider's object.
#include "benchmarks/Cases.h"
#include "benchmarks/Provider.h"
#include "nst/ReadOnlyFolder.h"
#include "nst/ReadOnlyMessage.h"
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

/// Registers the case with the log so set; what a sink does is not counted.
template <class I, class Call>
void AddRefusal(const std::string& name, I* object, const char* variant, void (*setLog)(), Call call)
{
    AddVariant(name, variant, object, call, setLog == LogNowhere ? Counting::On : Counting::Off, setLog);
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

} // namespace

void AddRefusalCases()
{
    IMessage* const message = MakeMessage();
    AddRefusals<IMessage>("refusal/SaveChanges", message, new Nst::CReadOnlyMessage(message),
                          [](IMessage* object) { object->SaveChanges(0); });
    IMAPIFolder* const folder = MakeFolder(100);
    AddRefusals<IMAPIFolder>("refusal/DeleteMessages", folder, new Nst::CReadOnlyFolder(folder, nullptr, nullptr),
                             [](IMAPIFolder* object) { object->DeleteMessages(nullptr, 0, nullptr, 0); });
}

} // namespace Benchmarks

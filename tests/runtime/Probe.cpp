#include "tests/runtime/Probe.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace
{

void Line(const char* text)
{
    // By the program that started, which is there before this module and after it.
    const auto record = reinterpret_cast<Probe::Record>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(nullptr), Probe::recordName)));
    if (record)
        record(text);
}

bool IsSet(const wchar_t* variable)
{
    return GetEnvironmentVariableW(variable, nullptr, 0) != 0;
}

class Marker
{
public:
    explicit Marker(const char* name) : m_name(name) { Line(("+" + m_name).c_str()); }
    Marker(const Marker&) = delete;
    Marker& operator=(const Marker&) = delete;
    ~Marker() { Line(("-" + m_name).c_str()); }

private:
    std::string m_name;
};

struct Thrower
{
    Thrower()
    {
        if (IsSet(Probe::throwVariable))
            throw std::string("refused");
    }
};

const Marker firstStatic("first");
const Thrower throwingStatic;
const Marker secondStatic("second");

class OfThread
{
public:
    OfThread() { Line("+thread"); }
    OfThread(const OfThread&) = delete;
    OfThread& operator=(const OfThread&) = delete;
    ~OfThread() { Line("-thread"); }

    int m_value = 40;
};

thread_local OfThread t_own;

LONG g_constructions = 0;

struct Slow
{
    Slow()
    {
        Sleep(50);
        m_value = InterlockedIncrement(&g_constructions) + 6;
    }
    LONG m_value = 0;
};

Probe::Counted TouchStatic()
{
    static const Slow slow;
    return {g_constructions, slow.m_value};
}

int TouchFailing(int failures)
{
    static int tries = 0;
    try
    {
        static const int value = [failures]
        {
            if (tries++ < failures)
                throw 1;
            return tries;
        }();
        return value;
    }
    catch (int)
    {
        return -1;
    }
}

void RegisterExit()
{
    std::atexit(
        []
        {
            Line("exit function");
            std::atexit([] { Line("exit function of an exit function"); });
            static const Marker late("late");
        });
}

int TouchThread()
{
    return ++t_own.m_value;
}

class ThreadEnd
{
public:
    explicit ThreadEnd(int number) : m_number(number) {}
    ThreadEnd(const ThreadEnd&) = delete;
    ThreadEnd& operator=(const ThreadEnd&) = delete;
    ~ThreadEnd() { Line(("end " + std::to_string(m_number)).c_str()); }

private:
    int m_number;
};

// A variable of the thread for each number.
template <int number>
void RegisterUpTo(int count)
{
    if (number > count)
        return;
    thread_local const ThreadEnd end(number);
    if constexpr (number < 70)
        RegisterUpTo<number + 1>(count);
}

void Allocate(std::size_t size)
{
    const std::unique_ptr<char[]> block(new char[size]);
}

} // namespace

extern "C" __declspec(dllexport) Probe::Functions GetProbeFunctions()
{
    return {TouchStatic, TouchFailing, RegisterExit, TouchThread, RegisterUpTo<1>, Allocate};
}

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved)
{
    if (reason == DLL_PROCESS_ATTACH)
        Line("attached");
    if (reason == DLL_PROCESS_DETACH)
        Line(reserved ? "detached at the process's end" : "detached");
    return reason != DLL_PROCESS_ATTACH || !IsSet(Probe::refuseVariable);
}

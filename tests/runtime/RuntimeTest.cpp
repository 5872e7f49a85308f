// The start-up of a DLL and of a program, seen from outside.
#include "tests/runtime/Probe.h"
#include "tests/runtime/ProcessEnd.h"

#include <windows.h>

#include <cstdint>
#include <exception>
#include <future>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ProcessEnd::RunProcess;
using ProcessEnd::TakeLines;
using testing::ElementsAre;

namespace
{

std::wstring ProbeFile()
{
    wchar_t folder[MAX_PATH] = {};
    GetEnvironmentVariableW(L"KIVNST_BIN", folder, MAX_PATH);
    return std::wstring(folder) + L"\\..\\unit-doubles\\runtime-probe.dll";
}

/// The module, loaded for the object's life.
class Module
{
public:
    Module() : m_handle(LoadLibraryW(ProbeFile().c_str()))
    {
        if (m_handle)
            m_functions = reinterpret_cast<Probe::GetFunctions>(
                reinterpret_cast<void*>(GetProcAddress(m_handle, Probe::getFunctionsName)))();
    }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    ~Module()
    {
        if (m_handle)
            FreeLibrary(m_handle);
    }

    explicit operator bool() const { return m_handle != nullptr; }
    const Probe::Functions* operator->() const { return &m_functions; }

private:
    HMODULE m_handle;
    Probe::Functions m_functions = {};
};

/// An environment variable that is set for the object's life.
class Variable
{
public:
    explicit Variable(const wchar_t* name) : m_name(name) { SetEnvironmentVariableW(name, L"1"); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() { SetEnvironmentVariableW(m_name, nullptr); }

private:
    const wchar_t* m_name;
};

class ModuleLife : public testing::Test
{
protected:
    ModuleLife() { TakeLines(); }
};

} // namespace

TEST_F(ModuleLife, ConstructsInOrderAndDestroysInReverseOrderOnUnload)
{
    {
        const Module module;
        ASSERT_TRUE(module);
        EXPECT_THAT(TakeLines(), ElementsAre("+first", "+second", "+thread", "attached"));
    }
    EXPECT_THAT(TakeLines(), ElementsAre("-thread", "detached", "-second", "-first"));
}

TEST_F(ModuleLife, RunsExitFunctionsLastInFirstOutWithThoseRegisteredMeanwhile)
{
    {
        const Module module;
        ASSERT_TRUE(module);
        module->registerExit();
        TakeLines();
    }
    EXPECT_THAT(TakeLines(), ElementsAre("-thread", "detached", "exit function", "+late", "-second", "-first", "-late",
                                         "exit function of an exit function"));
}

TEST_F(ModuleLife, StartsAnewWhenItIsLoadedAgain)
{
    for (int round = 0; round < 50; ++round)
    {
        TakeLines();
        {
            const Module module;
            ASSERT_TRUE(module);
            EXPECT_EQ(module->touchStatic().constructions, 1);
            EXPECT_EQ(module->touchThread(), 41);
        }
        ASSERT_THAT(TakeLines(), ElementsAre("+first", "+second", "+thread", "attached", "-thread", "detached",
                                             "-second", "-first"));
    }
}

TEST_F(ModuleLife, RefusesTheModuleWhoseConstructorThrows)
{
    {
        const Variable variable(Probe::throwVariable);
        EXPECT_FALSE(Module());
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DLL_INIT_FAILED));
    }
    EXPECT_THAT(TakeLines(), ElementsAre("+first", "-first"));
    EXPECT_TRUE(Module());
}

TEST_F(ModuleLife, EndsOnceWhenDllMainRefuses)
{
    {
        const Variable variable(Probe::refuseVariable);
        EXPECT_FALSE(Module());
    }
    EXPECT_THAT(TakeLines(),
                ElementsAre("+first", "+second", "+thread", "attached", "-thread", "detached", "-second", "-first"));
}

TEST_F(ModuleLife, ConstructsAStaticOnceForThreadsThatRace)
{
    for (int round = 0; round < 10; ++round)
    {
        const Module module;
        ASSERT_TRUE(module);
        std::vector<Probe::Counted> seen(16);
        std::vector<std::thread> threads;
        for (auto& each : seen)
            threads.emplace_back([&each, &module] { each = module->touchStatic(); });
        for (auto& thread : threads)
            thread.join();
        for (const auto& each : seen)
        {
            EXPECT_EQ(each.constructions, 1);
            EXPECT_EQ(each.value, 7);
        }
    }
}

TEST_F(ModuleLife, TriesAgainWhereAStaticsConstructorThrew)
{
    const Module module;
    ASSERT_TRUE(module);
    EXPECT_EQ(module->touchFailing(2), -1);
    EXPECT_EQ(module->touchFailing(2), -1);
    EXPECT_EQ(module->touchFailing(2), 3);
    EXPECT_EQ(module->touchFailing(2), 3);
}

TEST_F(ModuleLife, GivesEachThreadItsOwnVariable)
{
    const Module module;
    ASSERT_TRUE(module);
    EXPECT_EQ(module->touchThread(), 41);
    TakeLines();
    int other = 0;
    std::thread(
        [&]
        {
            module->touchThread();
            other = module->touchThread();
        })
        .join();
    EXPECT_EQ(other, 42);
    EXPECT_EQ(module->touchThread(), 42);
    EXPECT_THAT(TakeLines(), ElementsAre("+thread", "-thread"));
}

TEST_F(ModuleLife, ConstructsTheVariableOfAThreadThatWasThereBefore)
{
    std::unique_ptr<Module> module;
    const HANDLE running = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE loaded = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    int seen = 0;
    std::thread before(
        [&]
        {
            SetEvent(running);
            WaitForSingleObject(loaded, INFINITE);
            seen = (*module)->touchThread();
        });
    // A thread that has not begun by then is told of the module like any later one.
    WaitForSingleObject(running, INFINITE);
    module = std::make_unique<Module>();
    TakeLines();
    SetEvent(loaded);
    before.join();
    CloseHandle(loaded);
    CloseHandle(running);
    ASSERT_TRUE(*module);
    EXPECT_EQ(seen, 41);
    EXPECT_THAT(TakeLines(), ElementsAre("+thread", "-thread"));
}

TEST_F(ModuleLife, DestroysAThreadsVariablesLastInFirstOutHoweverMany)
{
    constexpr int count = 65;
    const Module module;
    ASSERT_TRUE(module);
    TakeLines();
    std::thread([&] { module->registerThreadEnds(count); }).join();
    std::vector<std::string> expected = {"+thread"};
    for (int number = count; number > 0; --number)
        expected.push_back("end " + std::to_string(number));
    expected.emplace_back("-thread");
    EXPECT_EQ(TakeLines(), expected);
}

TEST(EndOfProcess, RunsTheProgramsListAndThenThatOfEachModule)
{
    for (const auto& [way, exitCode] : {std::pair{L"return", 5ul}, {L"exit", 6ul}})
    {
        const auto outcome = RunProcess(way);
        EXPECT_EQ(outcome.exitCode, exitCode);
        EXPECT_THAT(outcome.lines, ElementsAre("+first", "+second", "+thread", "attached", "variable of the thread",
                                               "exit function of the program", "static of the program", "-thread",
                                               "detached at the process's end", "-second", "-first"));
    }
}

TEST(EndOfProcess, LeavesTheProgramsListAloneWhenNobodyCalledExit)
{
    const auto outcome = RunProcess(L"ExitProcess");
    EXPECT_EQ(outcome.exitCode, 7u);
    EXPECT_THAT(outcome.lines, ElementsAre("+first", "+second", "+thread", "attached", "-thread",
                                           "detached at the process's end", "-second", "-first"));
}

TEST(EndOfProcess, IsTerminationForAnExceptionThatNobodyCatches)
{
    // What abort() ends with.
    EXPECT_EQ(RunProcess(L"throw").exitCode, 3u);
    EXPECT_EQ(RunProcess(L"throw in a thread").exitCode, 3u);
}

TEST(New, ThrowsWhatTheLanguageSays)
{
    volatile std::size_t tooMuch = std::numeric_limits<std::size_t>::max() / 2;
    EXPECT_THROW(operator delete[](operator new[](tooMuch)), std::bad_alloc);
    EXPECT_EQ(operator new[](tooMuch, std::nothrow), nullptr);
    EXPECT_THROW(operator delete(operator new(tooMuch, std::align_val_t(64)), std::align_val_t(64)), std::bad_alloc);
    EXPECT_EQ(operator new(tooMuch, std::align_val_t(64), std::nothrow), nullptr);
    volatile std::size_t allOfIt = std::numeric_limits<std::size_t>::max();
    EXPECT_THROW(operator delete(operator new(allOfIt)), std::bad_array_new_length);
}

TEST(New, AlignsAsItIsAsked)
{
    struct alignas(256) Wide
    {
        char bytes[256];
    };
    const auto wide = std::make_unique<Wide[]>(3);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(wide.get()) % 256, 0u);
    EXPECT_NE(std::make_unique<char[]>(0), nullptr);
}

TEST(New, AsksTheHandlerFirst)
{
    static int calls;
    calls = 0;
    const auto old = std::set_new_handler(
        []
        {
            if (++calls == 2)
                throw std::bad_alloc();
        });
    volatile std::size_t tooMuch = std::numeric_limits<std::size_t>::max() / 2;
    EXPECT_THROW(operator delete(operator new(tooMuch)), std::bad_alloc);
    std::set_new_handler(old);
    EXPECT_EQ(calls, 2);
}

TEST(ExceptionPointer, KeepsAnExceptionOfItsOwnType)
{
    std::exception_ptr kept;
    EXPECT_EQ(std::current_exception(), nullptr);
    try
    {
        throw std::runtime_error("a text that is kept");
    }
    catch (...)
    {
        kept = std::current_exception();
    }
    const std::exception_ptr copy = kept;
    EXPECT_EQ(copy, kept);
    for (int round = 0; round < 3; ++round)
    {
        try
        {
            std::rethrow_exception(copy);
        }
        catch (const std::runtime_error& error)
        {
            EXPECT_STREQ(error.what(), "a text that is kept");
        }
    }
    kept = std::make_exception_ptr(17);
    EXPECT_NE(copy, kept);
    EXPECT_THROW(std::rethrow_exception(kept), int);
}

TEST(ExceptionPointer, BringsAnExceptionToAnotherThread)
{
    std::promise<int> promise;
    std::thread(
        [&]
        {
            try
            {
                throw std::runtime_error("of the thread");
            }
            catch (...)
            {
                promise.set_exception(std::current_exception());
            }
        })
        .join();
    EXPECT_THROW(promise.get_future().get(), std::runtime_error);
}

TEST(TypeInfo, NamesAndComparesTypes)
{
    EXPECT_STREQ(typeid(int).name(), "int");
    EXPECT_STREQ(typeid(std::bad_alloc).name(), "class std::bad_alloc");
    EXPECT_NE(typeid(int), typeid(long));
    EXPECT_EQ(typeid(int), typeid(int));
    EXPECT_EQ(typeid(int).hash_code(), typeid(int).hash_code());
    const std::unique_ptr<std::exception> exception = std::make_unique<std::bad_cast>();
    const std::exception& held = *exception;
    EXPECT_EQ(typeid(held), typeid(std::bad_cast));
    EXPECT_NE(dynamic_cast<std::bad_cast*>(exception.get()), nullptr);
    EXPECT_EQ(dynamic_cast<std::bad_alloc*>(exception.get()), nullptr);
}

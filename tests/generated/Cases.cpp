// Running generated cases.
#include "tests/generated/Cases.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace Tests
{
namespace
{

std::string ReadEnvironment(const char* name)
{
    char text[128] = {};
    const DWORD length = GetEnvironmentVariableA(name, text, sizeof(text));
    if (length >= sizeof(text))
        throw std::invalid_argument(std::string(name) + " is too long");
    return text;
}

template <class Number>
void ReadNumber(const char* name, Number& number)
{
    const std::string text = ReadEnvironment(name);
    if (text.empty())
        return;
    if (text.size() > 18 ||
        !std::all_of(text.begin(), text.end(), [](char digit) { return digit >= '0' && digit <= '9'; }))
        throw std::invalid_argument(std::string(name) + " is no number: " + text);
    number = static_cast<Number>(std::stoull(text));
}

/// The count that the processes of a run share; of this process alone until they do.
volatile LONG64 g_ownCount = 0;
volatile LONG64* g_count = &g_ownCount;

/// A seed for one case of a kind, far from those of its neighbours.
std::uint64_t SeedOf(std::uint64_t seed, const char* kind, std::uint64_t number)
{
    std::uint64_t mixed = 0xCBF29CE484222325;
    for (const char* character = kind; *character != '\0'; ++character)
        mixed = (mixed ^ static_cast<unsigned char>(*character)) * 0x100000001B3;
    Random random(mixed ^ seed * 0x9E3779B97F4A7C15);
    return random.Next() + number * 0xD1342543DE82EF95;
}

} // namespace

std::uint64_t Random::Next() noexcept
{
    m_state += 0x9E3779B97F4A7C15;
    std::uint64_t mixed = m_state;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
    return mixed ^ (mixed >> 31);
}

const RunSettings& GetRunSettings()
{
    static const RunSettings settings = []
    {
        RunSettings read;
        ReadNumber("KIVNST_SEED", read.seed);
        ReadNumber("KIVNST_CASES", read.cases);
        ReadNumber("KIVNST_SECONDS", read.seconds);
        ReadNumber("KIVNST_CASE", read.onlyCase);
        return read;
    }();
    return settings;
}

void RunCases(const char* kind, std::uint64_t count, const std::function<void(Random&)>& runCase)
{
    using Clock = std::chrono::steady_clock;
    static const Clock::time_point start = Clock::now();
    const RunSettings& settings = GetRunSettings();
    const Clock::time_point kindStart = Clock::now();
    const std::uint64_t last = std::max<std::uint64_t>(1, count * settings.cases / defaultCases);
    std::uint64_t done = 0;
    for (std::uint64_t number = 0; number < last; ++number)
    {
        if (settings.onlyCase >= 0)
            number = static_cast<std::uint64_t>(settings.onlyCase);
        if (number % 64 == 0 && Clock::now() - start > std::chrono::seconds(settings.seconds))
        {
            std::printf("%s: no more time after %llu of %llu cases\n", kind, static_cast<unsigned long long>(done),
                        static_cast<unsigned long long>(last));
            break;
        }
        Random random(SeedOf(settings.seed, kind, number));
        try
        {
            runCase(random);
        }
        catch (const std::exception& exception)
        {
            ADD_FAILURE() << "an exception left the case: " << exception.what();
        }
        ++done;
        if (testing::Test::HasFailure())
        {
            ADD_FAILURE() << kind << ": case " << number << " failed. It alone: --seed=" << settings.seed
                          << " --case=" << number << " --gtest_filter="
                          << testing::UnitTest::GetInstance()->current_test_info()->test_suite_name() << "."
                          << testing::UnitTest::GetInstance()->current_test_info()->name();
            break;
        }
        if (settings.onlyCase >= 0)
            break;
    }
    InterlockedExchangeAdd64(g_count, static_cast<LONG64>(done));
    const auto taken = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - kindStart);
    std::printf("%s: %llu cases in %lld ms\n", kind, static_cast<unsigned long long>(done),
                static_cast<long long>(taken.count()));
}

void ShareCaseCount()
{
    constexpr auto variable = "KIVNST_CASE_COUNT";
    std::string name = ReadEnvironment(variable);
    if (name.empty())
    {
        name = "kivnst-cases-" + std::to_string(GetCurrentProcessId());
        SetEnvironmentVariableA(variable, name.c_str());
    }
    // Both stay for the life of the process.
    HANDLE const mapping =
        CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(LONG64), name.c_str());
    void* const view = mapping ? MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(LONG64)) : nullptr;
    if (!view)
        throw std::runtime_error("the count of cases cannot be shared");
    g_count = static_cast<volatile LONG64*>(view);
}

std::uint64_t CountCases()
{
    return static_cast<std::uint64_t>(*g_count);
}

} // namespace Tests

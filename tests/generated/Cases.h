// Running generated cases: as many as the settings say, each from a seed of its own, so that any one can be run again.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace Tests
{

/// A generator of pseudo-random numbers that gives the same for a seed everywhere.
class Random
{
public:
    explicit Random(std::uint64_t seed) noexcept : m_state(seed) {}

    std::uint64_t Next() noexcept;
    /// 0 up to `bound` - 1; `bound` must not be 0.
    std::size_t Below(std::size_t bound) noexcept { return static_cast<std::size_t>(Next() % bound); }
    /// Whether something of this chance happens: `count` times of `of`.
    bool Chance(std::size_t count, std::size_t of) noexcept { return Below(of) < count; }
    /// One of the elements.
    template <class Elements>
    const auto& Of(const Elements& elements) noexcept
    {
        return std::data(elements)[Below(std::size(elements))];
    }

private:
    std::uint64_t m_state;
};

/// How many cases a run has in all, about, unless it is told otherwise: the counts of all kinds together.
constexpr std::uint64_t defaultCases = 1'788'000;

/// What a run is told, by the program's arguments (--seed=, --cases=, --case=) or its environment.
struct RunSettings
{
    std::uint64_t seed = 1;             ///< KIVNST_SEED
    std::uint64_t cases = defaultCases; ///< KIVNST_CASES
    std::uint64_t seconds = 120;        ///< KIVNST_SECONDS: no case is started after so long
    std::int64_t onlyCase = -1;         ///< KIVNST_CASE: of each kind, this case alone
};

/// Reads the environment; throws std::invalid_argument for what is no number.
const RunSettings& GetRunSettings();

/// Runs `count` cases of a kind (in a run of `defaultCases`; in others in proportion). The first case that fails ends
/// the kind, with a message that tells how to run it alone.
void RunCases(const char* kind, std::uint64_t count, const std::function<void(Random&)>& runCase);

/// Makes this process count its cases where the processes that it starts count theirs.
void ShareCaseCount();
/// The cases of all these processes.
std::uint64_t CountCases();

} // namespace Tests

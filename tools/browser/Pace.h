// How far a long piece of work is, told now and then.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace Browser
{
/// Called with a sentence for who waits.
using Progress = std::function<void(const std::string&)>;

/// Tells of a known number of messages, every two seconds, how many are done, how fast it goes and how long the rest is
/// going to take. One thread at a time.
class Pace
{
public:
    /// `progress` has to live as long.
    Pace(size_t all, const Progress& progress);

    /// Another message of the folder `place` is done. One that took no time, because it was done before, is not
    /// `fresh`: the speed is that of the others.
    void Step(const std::string& place, bool fresh = true);

private:
    size_t m_all;
    const Progress& m_progress;
    size_t m_done = 0;
    size_t m_fresh = 0;
    unsigned long long m_begin;
    unsigned long long m_told;
};
} // namespace Browser

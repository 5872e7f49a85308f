// How far a long piece of work is.
#include "tools/browser/Pace.h"

#include <windows.h>

namespace Browser
{
namespace
{
constexpr unsigned long long pause = 2000;

std::string Duration(double seconds)
{
    constexpr double minute = 60;
    return seconds < 2 * minute ? std::to_string(static_cast<size_t>(seconds) + 1) + " s"
                                : std::to_string(static_cast<size_t>(seconds / minute)) + " min";
}
} // namespace

Pace::Pace(size_t all, const Progress& progress)
    : m_all(all),
      m_progress(progress),
      m_begin(GetTickCount64()),
      m_told(m_begin)
{
}

void Pace::Step(const std::string& place, bool fresh)
{
    ++m_done;
    m_fresh += fresh ? 1 : 0;
    const unsigned long long now = GetTickCount64();
    if (now - m_told < pause || m_done >= m_all)
        return;
    m_told = now;
    std::string line = "  " + place + ": " + std::to_string(m_done) + " of " + std::to_string(m_all) + " messages";
    if (m_fresh != 0)
    {
        const double rate = static_cast<double>(m_fresh) * 1000 / static_cast<double>(now - m_begin);
        if (rate >= 1)
            line += ", " + std::to_string(static_cast<size_t>(rate)) + " a second";
        line += ", " + Duration(static_cast<double>(m_all - m_done) / rate) + " left";
    }
    m_progress(line);
}
} // namespace Browser

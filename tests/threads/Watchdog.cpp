// The watchdog.
#include "tests/threads/Watchdog.h"

#include <cstdio>
#include <utility>

namespace Tests
{

Watchdog::Watchdog(unsigned seconds, std::function<std::string()> describe)
    : m_thread(
          [this, seconds, describe = std::move(describe)]
          {
              if (WaitForSingleObject(m_over.handle, seconds * 1000) != WAIT_TIMEOUT)
                  return;
              std::printf("watchdog: not done after %u seconds, the threads block each other\n%s", seconds,
                          describe ? describe().c_str() : "");
              std::fflush(stdout);
              // An orderly end would wait for what does not come.
              TerminateProcess(GetCurrentProcess(), 3);
          })
{
}

Watchdog::~Watchdog()
{
    SetEvent(m_over.handle);
    m_thread.join();
}

} // namespace Tests

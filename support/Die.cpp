// OnDie.
#include "support/Die.h"

#include "support/Log.h"

#include <atomic>

namespace Quillon
{
namespace
{

// Set once by the host, before it logs on.
std::atomic<DieHandler> g_handler = nullptr;
std::atomic<void*> g_context = nullptr;

} // namespace

void SetDieHandler(DieHandler handler, void* context) noexcept
{
    g_context = context;
    g_handler = handler;
}

void OnDie(unsigned code) noexcept
{
    Logging::FlushLog();
    if (const DieHandler handler = g_handler)
        handler(g_context, code);
}

} // namespace Quillon

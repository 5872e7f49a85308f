// The module's count of live objects.
#include "common/ComObject.h"

namespace Common
{
namespace
{
std::atomic<long> g_liveObjects{0};
}

long LiveObjects() noexcept
{
    return g_liveObjects.load();
}

Detail::CountedLife::CountedLife() noexcept
{
    ++g_liveObjects;
}

Detail::CountedLife::~CountedLife()
{
    --g_liveObjects;
}
} // namespace Common

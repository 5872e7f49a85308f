// The testbed's namespace, in which the helpers that it shares with the tools are known by their bare names.
#pragma once

namespace Common
{
}

namespace Testbed
{
using namespace Common;
}

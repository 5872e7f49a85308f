// The state into which IMAPISupport::MakeInvalid puts an object that a provider gives up.
#pragma once

#include "common/MapiMemory.h"
#include "testbed/common/Namespace.h"

namespace Testbed
{
/// The most methods that an object made invalid can have; no MAPI interface has as many.
constexpr ULONG maxInvalidMethods = 64;

/// Replaces the method table of `object`, which has to be a block of its own from `memory` of at least 16 bytes. From
/// then on AddRef and Release count from `references` on, the last Release frees the block, and every other method
/// gives MAPI_E_INVALID_OBJECT. Throws `Failure` (MAPI_E_INVALID_PARAMETER) for more than `MaxInvalidMethods` methods
/// or for fewer than IUnknown's three.
void MakeObjectInvalid(const MapiMemory& memory, void* object, ULONG references, ULONG methods);

/// Keeps the memory of an object after its last Release for a while, with a method table in which every method ends the
/// process (OlmapiExit::LostObject): whoever still calls it had no reference. `object` is of operator new.
void KeepLostObject(void* object) noexcept;
} // namespace Testbed

// Sees which calls reach the objects of a provider, whoever makes them.
#pragma once

#include "common/Mapi.h"

#include <string>
#include <vector>

namespace Tests
{
/// Puts itself in front of the methods in the method table of the given object's class: from then on every call of them
/// on any object of that class, in this process, is noted and then carried out as before. It sees what a wrapper passes
/// on and nothing that it keeps to itself. A class is watched once, and as long as its module is loaded.
void Watch(IMsgStore& store);
void Watch(IMAPIFolder& folder);
void Watch(IMessage& message);
void Watch(IAttach& attachment);

/// The calls since the last time, in order: "IMAPIFolder::CreateMessage". Thread-safe.
std::vector<std::string> TakeCalls();
} // namespace Tests

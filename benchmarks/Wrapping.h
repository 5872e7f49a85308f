// What stands over the provider's objects in a case: the library's classes, or the host kit's.
#pragma once

#include "support/MapiHeaders.h"

namespace Benchmarks
{

/// Makes wrappers, each with one reference. They take references on what they are given.
struct Wrapping
{
    /// In front of the cases' names.
    const char* prefix;
    IMsgStore* (*store)(IMsgStore* store, IMAPISupport* support);
    /// `archive` is the store's wrapper.
    IMAPIFolder* (*folder)(IMAPIFolder* folder, IMsgStore* archive, IMAPISupport* support);
    IMAPITable* (*table)(IMAPITable* table);
    /// Those that refuse what changes the archive.
    IMAPIFolder* (*readOnlyFolder)(IMAPIFolder* folder);
    IMessage* (*readOnlyMessage)(IMessage* message);
};

extern const Wrapping libraryWrapping;
extern const Wrapping kitWrapping;

} // namespace Benchmarks

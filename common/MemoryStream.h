// An IStream over bytes in memory, as OpenProperty gives for large properties.
#pragma once

#include "common/ComObject.h"
#include "common/PropValue.h"

#include <functional>

namespace Common
{
/// Creates a stream over `bytes`, standing at its beginning.
/// When `commit` is set the stream is writable: Commit calls it with the whole contents (it returns S_OK or a failure,
/// which Commit returns); contents that were not committed are handed to it when the stream is released, as stores do
/// with property streams opened on a transacted object. Revert goes back to the last commit. Without `commit`, writing
/// calls give STG_E_ACCESSDENIED. Sizes over 1 GiB give STG_E_MEDIUMFULL.
/// Clone gives a stream over the same contents with a position of its own. Thread-safe.
ComPtr<IStream> CreateMemoryStream(Bytes bytes, std::function<HRESULT(const Bytes&)> commit = nullptr);

/// Reads a stream from its beginning to its end. Throws `Failure` when it fails or holds more than `limit` bytes.
Bytes ReadStream(IStream& stream, size_t limit);

/// The bytes of a string or binary property as its stream shows them: a wide string without its terminator in
/// little-endian units, a narrow one without its terminator, a binary as it is. `type` converts strings first.
Bytes StreamBytes(const PropValue& value, ULONG type);

/// The reverse: the property of `tag` (PT_BINARY, PT_STRING8, PT_UNICODE) that a stream's bytes make; terminators at
/// the end of a string are dropped.
PropValue FromStreamBytes(ULONG tag, const Bytes& bytes);
} // namespace Common

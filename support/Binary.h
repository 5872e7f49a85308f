// Binary, a growable byte buffer, and Value, a variant of string or bytes. Their memory lies in the library's own heap.
#pragma once

#include "support/StringW.h"

#include <windows.h>

namespace Quillon
{

class Value;

/// Bytes that it owns. A null Binary has no buffer at all; an empty one has a buffer of size 0. Every operation that
/// needs memory throws CComError(E_OUTOFMEMORY) when there is none, and every one that is given bytes throws
/// CComError(E_INVALIDARG) for a null address with a size; both leave the buffer as it was. Sizes are in bytes.
/// An object may be used by one thread at a time.
class KIVNST_API Binary
{
public:
    /// A null buffer.
    Binary() noexcept;
    /// Copies `size` bytes; the result is not null, also when `size` is 0.
    Binary(const BYTE* bytes, std::size_t size);
    Binary(const Binary& other);
    Binary(Binary&& other) noexcept;
    /// Takes over the bytes that `value` holds; null when it holds no bytes. `value` is empty afterwards.
    explicit Binary(Value&& value) noexcept;
    ~Binary();
    Binary& operator=(const Binary& other);
    Binary& operator=(Binary&& other) noexcept;

    bool IsNull() const noexcept;
    std::size_t GetSize() const noexcept;
    /// Cuts the buffer or lengthens it with zero bytes; it is not null afterwards.
    void SetSize(std::size_t size);
    void Reserve(std::size_t capacity);
    /// Null when the buffer is. Valid until the buffer changes.
    BYTE* GetBuffer() noexcept;
    const BYTE* GetBuffer() const noexcept;
    /// Appends `size` bytes, which may lie within this buffer; it is not null afterwards.
    Binary& Append(const BYTE* bytes, std::size_t size);
    /// The size for a log line: "80 bytes", "1.5 KB (1536 bytes)".
    StringW FormatSize() const;

private:
    friend class Value;
    BYTE* m_buffer;
    std::size_t m_size;
    std::size_t m_capacity;
};

/// Holds a narrow string, a wide string, bytes, or nothing. Memory and threads as for Binary.
class KIVNST_API Value
{
public:
    /// What a Value holds.
    enum class Kind
    {
        Empty,
        StringA,
        StringW,
        Bytes
    };

    /// Holds nothing.
    Value() noexcept;
    /// Copies the text with its terminator; null text gives an empty string.
    Value(const char* text);
    Value(const wchar_t* text);
    /// Takes over the bytes; a null Binary gives a Value that holds nothing.
    explicit Value(Binary&& bytes) noexcept;
    Value(const Value& other);
    Value(Value&& other) noexcept;
    ~Value();
    Value& operator=(const Value& other);
    Value& operator=(Value&& other) noexcept;

    Kind GetKind() const noexcept;
    bool IsEmpty() const noexcept;
    /// The held bytes or characters; null when it holds nothing. Valid until the Value changes.
    const BYTE* GetBuffer() const noexcept;
    /// The held data's size in bytes, a string's terminator not counted.
    std::size_t GetSize() const noexcept;

private:
    friend class Binary;
    Binary m_data;
    Kind m_kind;
};

} // namespace Quillon

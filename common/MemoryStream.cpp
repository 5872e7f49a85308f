// Streams over bytes in memory, with commit and revert.
#include "common/MemoryStream.h"

#include "common/Boundary.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>

namespace Common
{
namespace
{
constexpr std::uint64_t maxSize = std::uint64_t{1024} * 1024 * 1024;
constexpr ULONG copyChunk = 64 * 1024;

// The contents that a stream and its clones share.
class Contents
{
public:
    Contents(Bytes bytes, std::function<HRESULT(const Bytes&)> commit)
        : m_bytes(std::move(bytes)),
          m_commit(std::move(commit))
    {
    }

    ~Contents()
    {
        if (m_committed)
        {
            try
            {
                m_commit(m_bytes);
            }
            catch (...)
            {
                // The last release of a stream has nobody to tell.
                ResultOfCurrentException(nullptr);
            }
        }
    }

    Contents(const Contents&) = delete;
    Contents& operator=(const Contents&) = delete;

    bool Writable() const noexcept { return static_cast<bool>(m_commit); }
    Mutex& Lock() noexcept { return m_lock; }
    const Bytes& Read() const noexcept { return m_bytes; }

    Bytes& Change()
    {
        if (!m_committed)
            m_committed = m_bytes;
        return m_bytes;
    }

    HRESULT Commit()
    {
        if (!m_committed)
            return S_OK;
        const HRESULT result = m_commit(m_bytes);
        if (SUCCEEDED(result))
            m_committed.reset();
        return result;
    }

    void Revert()
    {
        if (m_committed)
        {
            m_bytes = std::move(*m_committed);
            m_committed.reset();
        }
    }

private:
    Mutex m_lock;
    Bytes m_bytes;
    // What Revert goes back to; only there while there are changes.
    std::optional<Bytes> m_committed;
    std::function<HRESULT(const Bytes&)> m_commit;
};

class MemoryStream final : public ComObject<IStream, &IID_IStream, &IID_ISequentialStream>
{
public:
    MemoryStream(std::shared_ptr<Contents> contents, std::uint64_t position)
        : m_contents(std::move(contents)),
          m_position(position)
    {
    }

    STDMETHODIMP Read(void* pv, ULONG cb, ULONG* pcbRead) override
    {
        if (!pv)
            return STG_E_INVALIDPOINTER;
        const std::lock_guard guard(m_contents->Lock());
        const Bytes& bytes = m_contents->Read();
        const std::uint64_t left = m_position < bytes.size() ? bytes.size() - m_position : 0;
        const auto size = static_cast<ULONG>(std::min<std::uint64_t>(left, cb));
        if (size)
            std::memcpy(pv, bytes.data() + m_position, size);
        m_position += size;
        if (pcbRead)
            *pcbRead = size;
        return size == cb ? S_OK : S_FALSE;
    }

    STDMETHODIMP Write(const void* pv, ULONG cb, ULONG* pcbWritten) override
    {
        if (pcbWritten)
            *pcbWritten = 0;
        if (!pv)
            return STG_E_INVALIDPOINTER;
        return Changed(
            [&]
            {
                if (m_position + cb > maxSize)
                    return STG_E_MEDIUMFULL;
                Bytes& bytes = m_contents->Change();
                if (m_position + cb > bytes.size())
                    bytes.resize(m_position + cb);
                std::memcpy(bytes.data() + m_position, pv, cb);
                m_position += cb;
                if (pcbWritten)
                    *pcbWritten = cb;
                return S_OK;
            });
    }

    STDMETHODIMP Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) override
    {
        const std::lock_guard guard(m_contents->Lock());
        std::int64_t base = 0;
        switch (dwOrigin)
        {
        case STREAM_SEEK_SET:
            break;
        case STREAM_SEEK_CUR:
            base = static_cast<std::int64_t>(m_position);
            break;
        case STREAM_SEEK_END:
            base = static_cast<std::int64_t>(m_contents->Read().size());
            break;
        default:
            return STG_E_INVALIDFUNCTION;
        }
        const auto limit = static_cast<std::int64_t>(maxSize);
        if (dlibMove.QuadPart > limit || dlibMove.QuadPart < -limit || base + dlibMove.QuadPart < 0)
            return STG_E_INVALIDFUNCTION;
        m_position = static_cast<std::uint64_t>(base + dlibMove.QuadPart);
        if (plibNewPosition)
            plibNewPosition->QuadPart = m_position;
        return S_OK;
    }

    STDMETHODIMP SetSize(ULARGE_INTEGER libNewSize) override
    {
        return Changed(
            [&]
            {
                if (libNewSize.QuadPart > maxSize)
                    return STG_E_MEDIUMFULL;
                m_contents->Change().resize(libNewSize.QuadPart);
                return S_OK;
            });
    }

    STDMETHODIMP CopyTo(IStream* pstm, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead, ULARGE_INTEGER* pcbWritten) override
    {
        if (!pstm)
            return STG_E_INVALIDPOINTER;
        // Through a buffer and with no lock held: the target may be a clone on the same contents.
        std::uint64_t read = 0;
        std::uint64_t written = 0;
        HRESULT result = S_OK;
        try
        {
            Bytes chunk(copyChunk);
            while (read < cb.QuadPart && SUCCEEDED(result))
            {
                ULONG got = 0;
                Read(chunk.data(), static_cast<ULONG>(std::min<std::uint64_t>(copyChunk, cb.QuadPart - read)), &got);
                if (got == 0)
                    break;
                read += got;
                ULONG put = 0;
                result = pstm->Write(chunk.data(), got, &put);
                written += put;
            }
        }
        catch (const std::bad_alloc&)
        {
            result = E_OUTOFMEMORY;
        }
        if (pcbRead)
            pcbRead->QuadPart = read;
        if (pcbWritten)
            pcbWritten->QuadPart = written;
        return FAILED(result) ? result : S_OK;
    }

    STDMETHODIMP Commit(DWORD) override
    {
        const std::lock_guard guard(m_contents->Lock());
        if (!m_contents->Writable())
            return S_OK;
        return Safely([this] { return m_contents->Commit(); });
    }

    STDMETHODIMP Revert() override
    {
        const std::lock_guard guard(m_contents->Lock());
        m_contents->Revert();
        return S_OK;
    }

    STDMETHODIMP LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return STG_E_INVALIDFUNCTION; }
    STDMETHODIMP UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return STG_E_INVALIDFUNCTION; }

    STDMETHODIMP Stat(STATSTG* pstatstg, DWORD) override
    {
        if (!pstatstg)
            return STG_E_INVALIDPOINTER;
        const std::lock_guard guard(m_contents->Lock());
        *pstatstg = {};
        pstatstg->type = STGTY_STREAM;
        pstatstg->cbSize.QuadPart = m_contents->Read().size();
        pstatstg->grfMode = m_contents->Writable() ? STGM_READWRITE : STGM_READ;
        return S_OK;
    }

    STDMETHODIMP Clone(IStream** ppstm) override
    {
        if (!ppstm)
            return STG_E_INVALIDPOINTER;
        *ppstm = nullptr;
        const std::lock_guard guard(m_contents->Lock());
        return Safely(
            [&]
            {
                *ppstm = MakeObject<MemoryStream>(m_contents, m_position).Detach();
                return S_OK;
            });
    }

private:
    template <class F>
    static HRESULT Safely(F&& body) noexcept
    {
        try
        {
            return body();
        }
        catch (...)
        {
            return ResultOfCurrentException(nullptr);
        }
    }

    template <class F>
    HRESULT Changed(F&& body) noexcept
    {
        const std::lock_guard guard(m_contents->Lock());
        return m_contents->Writable() ? Safely(body) : STG_E_ACCESSDENIED;
    }

    std::shared_ptr<Contents> m_contents;
    std::uint64_t m_position;
};
} // namespace

ComPtr<IStream> CreateMemoryStream(Bytes bytes, std::function<HRESULT(const Bytes&)> commit)
{
    return MakeObject<MemoryStream>(std::make_shared<Contents>(std::move(bytes), std::move(commit)), 0);
}

Bytes ReadStream(IStream& stream, size_t limit)
{
    LARGE_INTEGER start{};
    Check(stream.Seek(start, STREAM_SEEK_SET, nullptr), L"IStream::Seek failed.");
    Bytes bytes;
    Bytes chunk(copyChunk);
    for (;;)
    {
        ULONG got = 0;
        Check(stream.Read(chunk.data(), copyChunk, &got), L"IStream::Read failed.");
        if (got == 0)
            return bytes;
        if (got > limit - bytes.size())
            Fail(MAPI_E_TOO_BIG, L"A stream is longer than is allowed here.");
        bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + got);
    }
}

Bytes StreamBytes(const PropValue& value, ULONG type)
{
    const auto converted = value.As(type);
    if (!converted)
        Fail(MAPI_E_INTERFACE_NOT_SUPPORTED, L"A property of this type has no stream.");
    if (const auto* narrow = converted->Get<std::string>())
        return Bytes(narrow->begin(), narrow->end());
    if (const auto* wide = converted->Get<std::wstring>())
    {
        const auto* bytes = reinterpret_cast<const BYTE*>(wide->data());
        return Bytes(bytes, bytes + wide->size() * sizeof(wchar_t));
    }
    if (const auto* binary = converted->Get<Bytes>())
        return *binary;
    Fail(MAPI_E_INTERFACE_NOT_SUPPORTED, L"A property of this type has no stream.");
}

PropValue FromStreamBytes(ULONG tag, const Bytes& bytes)
{
    switch (PROP_TYPE(tag))
    {
    case PT_STRING8:
    {
        std::string text(bytes.begin(), bytes.end());
        text.erase(text.find_last_not_of('\0') + 1);
        return {tag, std::move(text)};
    }
    case PT_UNICODE:
    {
        std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
        if (!text.empty())
            std::memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
        text.erase(text.find_last_not_of(L'\0') + 1);
        return {tag, std::move(text)};
    }
    case PT_BINARY:
        return PropValue::Binary(tag, bytes);
    default:
        Fail(MAPI_E_INTERFACE_NOT_SUPPORTED, L"A property of this type has no stream.");
    }
}
} // namespace Common

// Lets the system's structured storage work on a property stream.
#include "testbed/mapi/StreamStorage.h"

#include "common/Boundary.h"
#include "common/ComObject.h"
#include "testbed/common/Namespace.h"

#include <mutex>

namespace Testbed
{
namespace
{
// Bytes at an offset, over a stream, which has a position.
class StreamLockBytes final : public ComObject<ILockBytes, &IID_ILockBytes>
{
public:
    explicit StreamLockBytes(ComPtr<IStream> stream) : m_stream(std::move(stream)) {}

    STDMETHODIMP ReadAt(ULARGE_INTEGER ulOffset, void* pv, ULONG cb, ULONG* pcbRead) override
    {
        const std::lock_guard guard(m_lock);
        const HRESULT result = SeekTo(ulOffset);
        return FAILED(result) ? result : m_stream->Read(pv, cb, pcbRead);
    }

    STDMETHODIMP WriteAt(ULARGE_INTEGER ulOffset, const void* pv, ULONG cb, ULONG* pcbWritten) override
    {
        const std::lock_guard guard(m_lock);
        const HRESULT result = SeekTo(ulOffset);
        return FAILED(result) ? result : m_stream->Write(pv, cb, pcbWritten);
    }

    STDMETHODIMP Flush() override
    {
        const std::lock_guard guard(m_lock);
        return m_stream->Commit(STGC_DEFAULT);
    }

    STDMETHODIMP SetSize(ULARGE_INTEGER cb) override
    {
        const std::lock_guard guard(m_lock);
        return m_stream->SetSize(cb);
    }

    STDMETHODIMP LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return STG_E_INVALIDFUNCTION; }
    STDMETHODIMP UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return STG_E_INVALIDFUNCTION; }

    STDMETHODIMP Stat(STATSTG* pstatstg, DWORD grfStatFlag) override
    {
        const std::lock_guard guard(m_lock);
        const HRESULT result = m_stream->Stat(pstatstg, grfStatFlag);
        if (SUCCEEDED(result))
            pstatstg->type = STGTY_LOCKBYTES;
        return result;
    }

private:
    HRESULT SeekTo(ULARGE_INTEGER offset)
    {
        LARGE_INTEGER position;
        position.QuadPart = static_cast<LONGLONG>(offset.QuadPart);
        return m_stream->Seek(position, STREAM_SEEK_SET, nullptr);
    }

    Mutex m_lock;
    ComPtr<IStream> m_stream;
};

ComPtr<ILockBytes> LockBytesOf(IUnknown& source, LPCIID interfaceId)
{
    ComPtr<ILockBytes> bytes;
    if (interfaceId && IsEqualIID(*interfaceId, IID_ILockBytes))
    {
        bytes = ComPtr<IUnknown>(&source).As<ILockBytes>(IID_ILockBytes);
    }
    else if (!interfaceId || IsEqualIID(*interfaceId, IID_IStream))
    {
        if (auto stream = ComPtr<IUnknown>(&source).As<IStream>(IID_IStream))
            bytes = MakeObject<StreamLockBytes>(std::move(stream));
    }
    if (!bytes)
        Fail(MAPI_E_INTERFACE_NOT_SUPPORTED, L"A storage is made of a stream or of lock bytes.");
    return bytes;
}
} // namespace

ComPtr<IStorage> OpenStreamStorage(IUnknown& source, LPCIID interfaceId, ULONG flags)
{
    RequireFlags(flags, STGSTRM_CURRENT | STGSTRM_MODIFY | STGSTRM_CREATE);
    const ComPtr<ILockBytes> bytes = LockBytesOf(source, interfaceId);
    const DWORD access = flags & (STGSTRM_MODIFY | STGSTRM_CREATE) ? STGM_READWRITE : STGM_READ;
    ComPtr<IStorage> storage;
    if (flags & STGSTRM_CREATE)
    {
        Check(StgCreateDocfileOnILockBytes(bytes.Get(), access | STGM_SHARE_EXCLUSIVE | STGM_CREATE, 0, storage.Put()),
              L"A storage cannot be created in the stream.");
    }
    else
    {
        Check(
            StgOpenStorageOnILockBytes(bytes.Get(), nullptr, access | STGM_SHARE_EXCLUSIVE, nullptr, 0, storage.Put()),
            L"The stream holds no storage that can be opened.");
    }
    return storage;
}
} // namespace Testbed

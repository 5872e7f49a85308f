// A stream that a client can only read, over one that might be written to.
#pragma once

#include "hostkit/Boundary.h"
#include "support/com_wrap.h"

#include <objidl.h>

namespace KivNstHostKit
{

inline constexpr IID iidUnknown = {0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr IID iidSequentialStream = {
    0x0C733A30, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D}};
inline constexpr IID iidStream = {0x0000000C, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

/// Reads as the stream behind it; Write and SetSize give STG_E_ACCESSDENIED, Commit and Revert have nothing to do. As
/// free-threaded as the stream behind it; the count starts at 1.
class CReadOnlyStream final : public IStream
{
public:
    KIVNST_OWN_HEAP

    /// Takes a reference on `stream`.
    explicit CReadOnlyStream(IStream* stream) : m_stream(stream) {}
    CReadOnlyStream(const CReadOnlyStream&) = delete;
    CReadOnlyStream& operator=(const CReadOnlyStream&) = delete;
    virtual ~CReadOnlyStream() = default;

    STDMETHODIMP QueryInterface(REFIID riid, void** ppvObject) override
    {
        return Quillon::AnswerWithSelf(this, riid, ppvObject, iidStream, iidSequentialStream, iidUnknown);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return InterlockedIncrement(&m_references); }
    STDMETHODIMP_(ULONG) Release() override
    {
        const ULONG left = InterlockedDecrement(&m_references);
        if (left == 0)
            delete this;
        return left;
    }

    STDMETHODIMP Read(void* pv, ULONG cb, ULONG* pcbRead) override
    {
        return AtBoundary(L"KivNstHostKit::Read", [&] { return m_stream->Read(pv, cb, pcbRead); });
    }
    STDMETHODIMP Write(const void*, ULONG, ULONG*) override { return Deny(L"Write"); }
    STDMETHODIMP Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) override
    {
        return AtBoundary(L"KivNstHostKit::Seek", [&] { return m_stream->Seek(dlibMove, dwOrigin, plibNewPosition); });
    }
    STDMETHODIMP SetSize(ULARGE_INTEGER) override { return Deny(L"SetSize"); }
    STDMETHODIMP CopyTo(IStream* pstm, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead, ULARGE_INTEGER* pcbWritten) override
    {
        return AtBoundary(L"KivNstHostKit::CopyTo", [&] { return m_stream->CopyTo(pstm, cb, pcbRead, pcbWritten); });
    }
    STDMETHODIMP Commit(DWORD) override { return S_OK; }
    STDMETHODIMP Revert() override { return S_OK; }
    STDMETHODIMP LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return Deny(L"LockRegion"); }
    STDMETHODIMP UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return Deny(L"UnlockRegion"); }
    STDMETHODIMP Stat(STATSTG* pstatstg, DWORD grfStatFlag) override
    {
        return AtBoundary(L"KivNstHostKit::Stat", [&] { return m_stream->Stat(pstatstg, grfStatFlag); });
    }
    STDMETHODIMP Clone(IStream** ppstm) override
    {
        return AtBoundary(L"KivNstHostKit::Clone",
                          [&]() -> HRESULT
                          {
                              if (!ppstm)
                                  return STG_E_INVALIDPOINTER;
                              ATL::CComPtr<IStream> clone;
                              const HRESULT hr = m_stream->Clone(&clone);
                              if (SUCCEEDED(hr))
                                  *ppstm = new CReadOnlyStream(clone);
                              return hr;
                          });
    }

private:
    static HRESULT Deny(const wchar_t* method) noexcept
    {
        Quillon::LogFormattedEntry(Quillon::LogId::Warning,
                                   L"IStream::%s called on read-only stream; returning STG_E_ACCESSDENIED", method);
        return STG_E_ACCESSDENIED;
    }

    ATL::CComPtr<IStream> m_stream;
    ULONG m_references = 1;
};

} // namespace KivNstHostKit

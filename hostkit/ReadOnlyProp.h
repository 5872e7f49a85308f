// What the archive's stores, folders, messages and attachments have in common: how they show their properties, and how
// they refuse to have them changed.
#pragma once

#include "hostkit/Archive.h"

#include <algorithm>

namespace KivNstHostKit
{

/// An opened object as the archive's clients are given it: an embedded message as a message of the archive, a stream as
/// one that cannot be written to, anything else as it is. `iid` is the interface that was asked for. Throws
/// CComError(E_POINTER) for no object. Defined in hostkit/Message.h.
ATL::CComPtr<IUnknown> WrapOpened(const ArchivePointer& archive, REFIID iid, const ATL::CComPtr<IUnknown>& object);

/// What an interface is called, and its objects, in lines of the log; and their type.
template <class I>
struct Naming;
template <>
struct Naming<IMsgStore>
{
    static constexpr auto interfaceName = L"IMsgStore";
    static constexpr auto noun = L"archive store";
    static constexpr ULONG objectType = MAPI_STORE;
};
template <>
struct Naming<IMAPIFolder>
{
    static constexpr auto interfaceName = L"IMAPIFolder";
    static constexpr auto noun = L"folder";
    static constexpr ULONG objectType = MAPI_FOLDER;
};
template <>
struct Naming<IMessage>
{
    static constexpr auto interfaceName = L"IMessage";
    static constexpr auto noun = L"message";
    static constexpr ULONG objectType = MAPI_MESSAGE;
};
template <>
struct Naming<IAttach>
{
    static constexpr auto interfaceName = L"IAttach";
    static constexpr auto noun = L"attachment";
    static constexpr ULONG objectType = MAPI_ATTACH;
};

/// The methods of IMAPIProp over a wrapper of the library, `Base`, of interface `I`. Nothing is changed unless the
/// archive is writable or the property may be; reading is never refused: what is opened is opened without write access,
/// copies are MAPI's support object's
/// work, with this wrapper as the source. Any thread.
template <class Base, class I>
class CReadOnlyProp : public Base
{
public:
    STDMETHODIMP QueryInterface(REFIID riid, LPVOID* ppvObj) override
    {
        if (riid == iidReadOnlyObject && !m_archive->IsWritable())
            return Quillon::AnswerWithSelf(static_cast<I*>(this), riid, ppvObj, iidReadOnlyObject);
        return Base::QueryInterface(riid, ppvObj);
    }

    STDMETHODIMP GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                          LPSPropValue* lppPropArray) override
    {
        if (!lpcValues || !lppPropArray)
            return Base::GetProps(lpPropTagArray, ulFlags, lpcValues, lppPropArray);
        const CValues& values = m_archive->GetValues(Naming<I>::objectType);
        std::vector<ULONG> all;
        if (!lpPropTagArray && values.AddsAny())
        {
            // The PST does not list what the archive adds.
            Quillon::Mapi::SmartPointer<SPropTagArray*, Quillon::Mapi::MapiBufferDestructor> known;
            const HRESULT hr = Base::GetPropList(ulFlags, known.Put());
            if (FAILED(hr))
                return hr;
            all = TagsOf(known.Get());
            values.AppendTags(ulFlags, all);
            all = MakeTagBlock(all);
            lpPropTagArray = AsTagArray(all);
        }
        ULONG count = 0;
        Quillon::Mapi::PropValuePointer props;
        const HRESULT hr = Base::GetProps(lpPropTagArray, ulFlags, &count, props.Put());
        if (FAILED(hr))
            return hr;
        const CSubject subject(Naming<I>::objectType, props.Get(), count, m_wrapped);
        const bool isEach = lpPropTagArray && lpPropTagArray->cValues == count;
        const bool changed = values.Apply(subject, isEach ? lpPropTagArray->aulPropTag : nullptr, ulFlags, props.Get(),
                                          count, props.Get());
        if (!m_archive->IsWritable())
            ShowReadOnly(props.Get(), count);
        *lpcValues = count;
        const bool isWhole = changed && hr == MAPI_W_ERRORS_RETURNED && !HasErrors(props.Get(), count);
        *lppPropArray = props.Detach();
        return isWhole ? S_OK : hr;
    }

    STDMETHODIMP GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) override
    {
        const CValues& values = m_archive->GetValues(Naming<I>::objectType);
        if (!lppPropTagArray || !values.AddsAny())
            return Base::GetPropList(ulFlags, lppPropTagArray);
        Quillon::Mapi::SmartPointer<SPropTagArray*, Quillon::Mapi::MapiBufferDestructor> known;
        const HRESULT hr = Base::GetPropList(ulFlags, known.Put());
        if (FAILED(hr))
            return hr;
        std::vector<ULONG> all = TagsOf(known.Get());
        values.AppendTags(ulFlags, all);
        *lppPropTagArray = AllocateTagArray(all);
        return hr;
    }

    STDMETHODIMP OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                              LPUNKNOWN* lppUnk) override
    {
        if (!lpiid)
            return MAPI_E_INVALID_PARAMETER;
        const bool isWritable = IsWritable(1, [ulPropTag](std::size_t) { return ulPropTag; });
        if (!isWritable)
        {
            if (ulFlags & MAPI_CREATE)
                return RefuseTelling(L"OpenProperty", [&] { return Quillon::Mapi::FormatMapiPropertyTag(ulPropTag); });
            ulFlags = m_archive->OpenFlags(ulFlags);
            if (IsStorageOrStream(*lpiid))
                ulInterfaceOptions &= ~storageWriting;
        }
        if (!lppUnk)
            return Base::OpenProperty(ulPropTag, lpiid, ulInterfaceOptions, ulFlags, lppUnk);
        ATL::CComPtr<IUnknown> object;
        const HRESULT hr = Base::OpenProperty(ulPropTag, lpiid, ulInterfaceOptions, ulFlags, &object);
        if (FAILED(hr))
            return hr;
        if (!isWritable || m_archive->IsWritable())
            object = WrapProperty(ulPropTag, *lpiid, object);
        *lppUnk = object.Detach();
        return hr;
    }

    STDMETHODIMP SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override
    {
        if (cValues == 0 && !m_archive->IsWritable())
            return S_OK;
        const ULONG count = lpPropArray ? cValues : 0;
        if (!IsWritable(count, [lpPropArray](std::size_t index) { return lpPropArray[index].ulPropTag; }))
            return RefuseTelling(L"SetProps",
                                 [&] { return Quillon::Mapi::FormatMapiPropertyTags(lpPropArray, count); });
        return Base::SetProps(cValues, lpPropArray, lppProblems);
    }

    STDMETHODIMP DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) override
    {
        const ULONG count = lpPropTagArray ? lpPropTagArray->cValues : 0;
        if (!IsWritable(count, [lpPropTagArray](std::size_t index) { return lpPropTagArray->aulPropTag[index]; }))
            return RefuseTelling(L"DeleteProps", [&] { return Quillon::Mapi::FormatMapiPropertyTags(lpPropTagArray); });
        return Base::DeleteProps(lpPropTagArray, lppProblems);
    }

    STDMETHODIMP CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps, ULONG_PTR ulUIParam,
                        LPMAPIPROGRESS lpProgress, LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                        LPSPropProblemArray* lppProblems) override
    {
        if (m_archive->IsWritable())
        {
            return Base::CopyTo(ciidExclude, rgiidExclude, lpExcludeProps, ulUIParam, lpProgress, lpInterface,
                                lpDestObj, ulFlags, lppProblems);
        }
        if ((ulFlags & MAPI_MOVE) || IsReadOnlyObject(lpDestObj))
            return Refuse(L"CopyTo", ulFlags & MAPI_MOVE ? L"MAPI_MOVE" : L"into a read-only archive");
        if (ulFlags & MAPI_DECLINE_OK)
            return MAPI_E_DECLINE_COPY;
        return PASS_THROUGH(m_archive->GetSupport(), IMAPISupport::DoCopyTo, S_OK, &__uuidof(I),
                            static_cast<void*>(static_cast<I*>(this)), ciidExclude, rgiidExclude, lpExcludeProps,
                            ulUIParam, lpProgress, lpInterface, lpDestObj, ulFlags, lppProblems);
    }

    STDMETHODIMP CopyProps(LPSPropTagArray lpIncludeProps, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                           LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                           LPSPropProblemArray* lppProblems) override
    {
        if (m_archive->IsWritable())
            return Base::CopyProps(lpIncludeProps, ulUIParam, lpProgress, lpInterface, lpDestObj, ulFlags, lppProblems);
        if ((ulFlags & MAPI_MOVE) || IsReadOnlyObject(lpDestObj))
            return Refuse(L"CopyProps", ulFlags & MAPI_MOVE ? L"MAPI_MOVE" : L"into a read-only archive");
        if (ulFlags & MAPI_DECLINE_OK)
            return MAPI_E_DECLINE_COPY;
        return PASS_THROUGH(m_archive->GetSupport(), IMAPISupport::DoCopyProps, S_OK, &__uuidof(I),
                            static_cast<void*>(static_cast<I*>(this)), lpIncludeProps, ulUIParam, lpProgress,
                            lpInterface, lpDestObj, ulFlags, lppProblems);
    }

    STDMETHODIMP GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                 LPSPropTagArray* lppPropTags) override
    {
        // A name that the store does not know yet stays unknown, as for any client that only looks.
        if (!m_archive->IsWritable())
            ulFlags &= ~ULONG{MAPI_CREATE};
        return Base::GetIDsFromNames(cPropNames, lppPropNames, ulFlags, lppPropTags);
    }

protected:
    /// Takes a reference on `wrapped`; `arguments` are the library's wrapper's.
    template <class... Arguments>
    explicit CReadOnlyProp(ArchivePointer archive, I* wrapped, Arguments... arguments)
        : Base(arguments...),
          m_archive(std::move(archive)),
          m_wrapped(wrapped)
    {
    }

    /// Properties that clients may write although the archive is not writable.
    virtual const std::vector<ULONG>& GetWritableTags() const noexcept
    {
        static const std::vector<ULONG> none;
        return none;
    }
    /// Whether the object is a client's own and no part of the archive, so that all its properties may be written.
    virtual bool IsClientsOwn() const noexcept { return false; }
    /// WrapOpened, unless the object knows better.
    virtual ATL::CComPtr<IUnknown> WrapProperty(ULONG /*tag*/, REFIID iid, const ATL::CComPtr<IUnknown>& object) const
    {
        return WrapOpened(m_archive, iid, object);
    }

    /// Whether all of these properties may be written; `tagAt` gives one by its index.
    template <class TagAt>
    bool IsWritable(std::size_t count, TagAt&& tagAt) const noexcept
    {
        if (m_archive->IsWritable())
            return true;
        const std::vector<ULONG>& writable = GetWritableTags();
        bool areNamed = count != 0;
        for (std::size_t index = 0; areNamed && index < count; ++index)
            areNamed = std::find(writable.begin(), writable.end(), tagAt(index)) != writable.end();
        return areNamed || IsClientsOwn();
    }

    HRESULT Refuse(const wchar_t* method, const wchar_t* detail = L"") const noexcept
    {
        return RefuseCall(Naming<I>::interfaceName, method, Naming<I>::noun, detail);
    }
    /// The same with a detail that `makeDetail` gives. The call is refused all the same where there is no memory for
    /// it.
    template <class MakeDetail>
    HRESULT RefuseTelling(const wchar_t* method, MakeDetail&& makeDetail) const noexcept
    {
        try
        {
            const StringW detail = makeDetail();
            return Refuse(method, detail.GetString());
        }
        catch (...)
        {
            return Refuse(method);
        }
    }

    const ArchivePointer m_archive;
    const ATL::CComQIPtr<I> m_wrapped;

private:
    /// The modes of a stream or storage that write: STGM_WRITE and STGM_READWRITE, STGM_CREATE, STGM_TRANSACTED,
    /// STGM_CONVERT, STGM_DELETEONRELEASE.
    static constexpr ULONG storageWriting = 0x3 | 0x1000 | 0x10000 | 0x20000 | 0x04000000;

    static bool IsStorageOrStream(REFIID iid) noexcept
    {
        // IStorage, IStream and ISequentialStream.
        constexpr IID storage = {0x0000000B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
        constexpr IID stream = {0x0000000C, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
        constexpr IID sequential = {0x0C733A30, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D}};
        return iid == storage || iid == stream || iid == sequential;
    }
};

} // namespace KivNstHostKit

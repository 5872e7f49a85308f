// Cheap stand-ins for the objects of a store provider, for many threads at once: interlocked counts, no lock of their
// own, nothing recorded but totals.
#pragma once

#include "tests/common/InertObjects.h"

#include <atomic>
#include <functional>

namespace Tests
{

/// What all doubles did, on any thread.
struct Tally
{
    std::atomic<long long> made = 0;
    std::atomic<long long> ended = 0;   ///< their last reference was given up
    std::atomic<long long> calls = 0;   ///< AddRef and Release not counted
    std::atomic<long long> writes = 0;  ///< SetProps and DeleteProps
    std::atomic<long long> failed = 0;  ///< calls answered with a failure on purpose
    std::atomic<long long> misused = 0; ///< calls, AddRef and Release included, on an object that had ended
};

Tally& GetTally() noexcept;

/// The counted references of a double. An object that has ended is kept for a while before it is deleted, so that a
/// call on it is noticed and does not crash.
class CheapObject
{
public:
    CheapObject() noexcept;
    CheapObject(const CheapObject&) = delete;
    CheapObject& operator=(const CheapObject&) = delete;
    virtual ~CheapObject();

    ULONG References() const noexcept { return static_cast<ULONG>(m_references.load()); }

    /// Deletes all objects that have ended. While no other thread uses doubles.
    static void DeleteEnded() noexcept;

protected:
    ULONG Reference() noexcept;
    ULONG Dereference() noexcept;
    /// Counts a call.
    void Enter() noexcept;
    /// Counts a call that may fail; every so often it is to.
    bool EnterAndFail() noexcept;

private:
    std::atomic<LONG> m_references = 1;
};

/// What every double shares.
template <class Inert>
class Cheap : public Inert, public CheapObject
{
public:
    explicit Cheap(const IID& iid) noexcept : m_iid(iid) {}

    STDMETHODIMP QueryInterface(REFIID riid, LPVOID* ppvObj) override;
    STDMETHODIMP_(ULONG) AddRef() override { return Reference(); }
    STDMETHODIMP_(ULONG) Release() override { return Dereference(); }
    STDMETHODIMP GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override;

private:
    const IID& m_iid;
};

/// What the doubles with properties share. SaveChanges runs `onSaveChanges`, where it is set.
template <class Inert>
class CheapProp : public Cheap<Inert>
{
public:
    using Cheap<Inert>::Cheap;

    STDMETHODIMP SaveChanges(ULONG ulFlags) override;
    STDMETHODIMP GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                          LPSPropValue* lppPropArray) override;
    STDMETHODIMP OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                              LPUNKNOWN* lppUnk) override;
    STDMETHODIMP SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) override;

    std::function<void()> onSaveChanges;
};

/// What GetProps gives: every PT_LONG property `everyBit` but these two, every PT_BINARY one 24 bytes of `anyByte` but
/// the archive subtree root's, every PT_UNICODE one "100% %s %n"; of other types there are none.
constexpr LONG everyBit = 0x7FFFFFFF;
constexpr BYTE anyByte = 0x11;
constexpr BYTE archiveByte = 0x22;
constexpr ULONG entryIdSize = 24;

/// The first byte of an entry ID tells what CheapStore::OpenEntry gives.
enum class EntryKind : BYTE
{
    Folder,
    Message,
    Other,        ///< an object of another type
    FalseFolder,  ///< called a folder, but a message
    FalseMessage, ///< called a message, but a folder
    Missing,
    Count
};

class CheapStore final : public CheapProp<InertStore>
{
public:
    CheapStore() noexcept;
    STDMETHODIMP OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                           LPUNKNOWN* lppUnk) override;
    STDMETHODIMP CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                                 ULONG ulFlags, ULONG* lpulResult) override;
    STDMETHODIMP SetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG cbEntryID,
                                  LPENTRYID lpEntryID) override;
};

class CheapFolder final : public CheapProp<InertFolder>
{
public:
    CheapFolder() noexcept;
    STDMETHODIMP GetContentsTable(ULONG ulFlags, LPMAPITABLE* lppTable) override;
    STDMETHODIMP GetHierarchyTable(ULONG ulFlags, LPMAPITABLE* lppTable) override;
    STDMETHODIMP CreateMessage(LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage) override;
    STDMETHODIMP CreateFolder(ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment, LPCIID lpInterface,
                              ULONG ulFlags, LPMAPIFOLDER* lppFolder) override;
};

class CheapMessage final : public CheapProp<InertMessage>
{
public:
    CheapMessage() noexcept;
    STDMETHODIMP GetAttachmentTable(ULONG ulFlags, LPMAPITABLE* lppTable) override;
};

class CheapTable final : public Cheap<InertTable>
{
public:
    CheapTable() noexcept;
    STDMETHODIMP GetRowCount(ULONG ulFlags, ULONG* lpulCount) override;
    STDMETHODIMP FindRow(LPSRestriction lpRestriction, BOOKMARK bkOrigin, ULONG ulFlags) override;
    STDMETHODIMP QueryRows(LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows) override;
    STDMETHODIMP Abort() override;

    std::function<void()> onAbort;
};

/// Frees what QueryRows gave.
void FreeRows(SRowSet* rows);

} // namespace Tests

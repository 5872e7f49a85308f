// Calls every virtual slot of every wrapper class through the raw virtual table, over objects that only record.
#include "nst/KivNstCore.h"
#include "nst/NstAttach.h"
#include "nst/NstMapiSupport.h"
#include "nst/NstMapiTable.h"
#include "nst/NstMsLogon.h"
#include "nst/NstMsProvider.h"
#include "nst/NstMsgStore.h"
#include "nst/ReadOnlyFolder.h"
#include "nst/ReadOnlyMessage.h"
#include "support/Format.h"
#include "support/MapiErrors.h"
#include "tests/common/LogCapture.h"
#include "tests/common/MapiModule.h"
#include "tests/common/Properties.h"
#include "tests/wrappers/Recorder.h"
#include "tests/wrappers/Slots.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace Quillon;
using namespace Quillon::Nst;
using testing::ElementsAre;
using testing::IsEmpty;

namespace Tests
{
namespace
{

/// The objects around one wrapper. References on each begin at 1, the test's own.
struct Surroundings
{
    explicit Surroundings(bool wrappedHasLastError) : wrapped(wrappedHasLastError) {}

    Recorder wrapped;
    Recorder store;
    Recorder support;
    Recorder section;
};

/// How QueryInterface treats an interface that is not the wrapper's own.
enum class Foreign
{
    Refused,
    PassedOn
};

/// An interface identifier that is not passed on as it came, but as another one.
struct PrivateIid
{
    IID asked;
    IID passedOn;
};

/// One wrapper class.
struct WrapperClass
{
    const char* name;
    std::string interfaceName;
    /// The class that implements the altered methods, whose name stands in their log lines, and its source file.
    std::wstring implementer;
    std::span<const Slot> slots;
    int interfaceSlots;
    int (*countVirtualSlots)();
    void* (*make)(Surroundings&);
    std::vector<IID> own;
    Foreign foreign;
    std::vector<PrivateIid> privateIids;
    /// Which surroundings the wrapper holds a reference on.
    bool holdsStore;
    bool holdsSupport;
    bool holdsSection;
    bool hasLastError = true;

    std::wstring File() const { return implementer.substr(1) + L".cpp"; }
    std::wstring Function(const char* method) const
    {
        return L"Quillon::Nst::" + implementer + L"::" + std::wstring(method, method + std::strlen(method));
    }
};

/// The number of slots in the class's virtual table: what one more virtual method of a derived class would get. Found
/// by calling that method on an object whose table tells which slot was called.
template <class Wrapper>
int CountVirtualSlots()
{
    struct Derived : Wrapper
    {
        using Wrapper::Wrapper;
        virtual void STDMETHODCALLTYPE Appended() {}
    };
    Recorder recorder;
    // Volatile, so that the call is made through the table and not decided by the compiler.
    void (STDMETHODCALLTYPE Derived::* volatile method)() = &Derived::Appended;
    const auto call = method;
    (recorder.As<Derived>()->*call)();
    return recorder.Calls().empty() ? -1 : recorder.Calls().back().slot;
}

const std::vector<WrapperClass>& GetClasses()
{
    static const std::vector<WrapperClass> classes = {
        {"CNstMsProvider",
         "IMSProvider",
         L"CNstMsProvider",
         providerSlots,
         7,
         CountVirtualSlots<CNstMsProvider>,
         [](Surroundings& s) -> void* { return new CNstMsProvider(s.wrapped.As<IMSProvider>()); },
         {IID_IMSProvider, IID_IUnknown},
         Foreign::PassedOn,
         {},
         false,
         false,
         false,
         false},
        {"CNstMsLogon",
         "IMSLogon",
         L"CNstMsLogon",
         logonSlots,
         10,
         CountVirtualSlots<CNstMsLogon>,
         [](Surroundings& s) -> void* { return new CNstMsLogon(s.wrapped.As<IMSLogon>(), s.store.As<IMsgStore>()); },
         {IID_IMSLogon, IID_IUnknown},
         Foreign::Refused,
         {},
         true,
         false,
         false},
        {"CNstMsgStore",
         "IMsgStore",
         L"CNstMsgStore",
         storeSlots,
         27,
         CountVirtualSlots<CNstMsgStore>,
         [](Surroundings& s) -> void*
         { return new CNstMsgStore(s.wrapped.As<IMsgStore>(), s.support.As<IMAPISupport>()); },
         {IID_IMsgStore, IID_IMAPIProp, IID_IUnknown},
         Foreign::Refused,
         {{{0x61B3ECD5, 0xADAD, 0x4647, {0xBE, 0xFF, 0x27, 0xCD, 0x5A, 0x3A, 0xAC, 0x70}}, IID_IMsgStore}},
         false,
         true,
         false},
        {"CNstMapiFolder",
         "IMAPIFolder",
         L"CNstMapiFolder",
         folderSlots,
         30,
         CountVirtualSlots<CNstMapiFolder>,
         [](Surroundings& s) -> void*
         {
             return new CNstMapiFolder(s.wrapped.As<IMAPIFolder>(), s.store.As<IMsgStore>(),
                                       s.support.As<IMAPISupport>());
         },
         {IID_IMAPIFolder, IID_IMAPIContainer, IID_IMAPIProp, IID_IUnknown},
         Foreign::Refused,
         {{{0xF7E23915, 0x55A7, 0x47BE, {0xA5, 0x9D, 0x20, 0xC0, 0xFF, 0x7F, 0xF9, 0x52}}, IID_IMAPIFolder}},
         true,
         true,
         false},
        {"CReadOnlyFolder",
         "IMAPIFolder",
         L"CNstMapiFolder",
         readOnlyFolderSlots,
         30,
         CountVirtualSlots<CReadOnlyFolder>,
         [](Surroundings& s) -> void*
         {
             return new CReadOnlyFolder(s.wrapped.As<IMAPIFolder>(), s.store.As<IMsgStore>(),
                                        s.support.As<IMAPISupport>());
         },
         {IID_IMAPIFolder, IID_IMAPIContainer, IID_IMAPIProp, IID_IUnknown},
         Foreign::Refused,
         {{{0xF7E23915, 0x55A7, 0x47BE, {0xA5, 0x9D, 0x20, 0xC0, 0xFF, 0x7F, 0xF9, 0x52}}, IID_IMAPIFolder}},
         true,
         true,
         false},
        {"CNstMapiTable",
         "IMAPITable",
         L"CNstMapiTable",
         tableSlots,
         26,
         CountVirtualSlots<CNstMapiTable>,
         [](Surroundings& s) -> void* { return new CNstMapiTable(s.wrapped.As<IMAPITable>()); },
         {IID_IMAPITable, IID_IUnknown},
         Foreign::Refused,
         {},
         false,
         false,
         false},
        {"CNstMessage",
         "IMessage",
         L"CNstMessage",
         messageSlots,
         22,
         CountVirtualSlots<CNstMessage>,
         [](Surroundings& s) -> void* { return new CNstMessage(s.wrapped.As<IMessage>()); },
         {IID_IMessage, IID_IMAPIProp, IID_IUnknown},
         Foreign::Refused,
         {},
         false,
         false,
         false},
        {"CReadOnlyMessage",
         "IMessage",
         L"CNstMessage",
         readOnlyMessageSlots,
         22,
         CountVirtualSlots<CReadOnlyMessage>,
         [](Surroundings& s) -> void* { return new CReadOnlyMessage(s.wrapped.As<IMessage>()); },
         {IID_IMessage, IID_IMAPIProp, IID_IUnknown},
         Foreign::Refused,
         {},
         false,
         false,
         false},
        {"CNstAttach",
         "IAttach",
         L"CNstAttach",
         attachSlots,
         14,
         CountVirtualSlots<CNstAttach>,
         [](Surroundings& s) -> void* { return new CNstAttach(s.wrapped.As<IAttach>()); },
         {IID_IAttachment, IID_IMAPIProp, IID_IUnknown},
         Foreign::Refused,
         {},
         false,
         false,
         false},
        {"CNstMapiSupport",
         "IMAPISupport",
         L"CNstMapiSupport",
         supportSlots,
         44,
         CountVirtualSlots<CNstMapiSupport>,
         [](Surroundings& s) -> void*
         { return new CNstMapiSupport(s.support.As<IMAPISupport>(), s.section.As<IProfSect>()); },
         {IID_IMAPISup, IID_IUnknown},
         Foreign::PassedOn,
         {},
         false,
         true,
         true},
    };
    return classes;
}

/// One slot of one class, in one state of the modification switch.
struct SlotCase
{
    const WrapperClass* wrapper;
    const Slot* slot;
    bool modify;
};

std::vector<SlotCase> AllCases()
{
    std::vector<SlotCase> cases;
    for (const WrapperClass& wrapper : GetClasses())
    {
        const bool hasGates =
            std::ranges::any_of(wrapper.slots, [](const Slot& slot) { return slot.gate != Gate::None; });
        for (const Slot& slot : wrapper.slots)
        {
            cases.push_back({&wrapper, &slot, false});
            if (hasGates)
                cases.push_back({&wrapper, &slot, true});
        }
    }
    return cases;
}

std::string CaseName(const testing::TestParamInfo<SlotCase>& info)
{
    return std::string(info.param.wrapper->name) + "_" + info.param.slot->name +
           (info.param.modify ? "_modifiable" : "");
}

/// Every code that some method tolerates, the codes that may end the process, and codes of other kinds.
constexpr HRESULT results[] = {
    S_OK,
    S_FALSE,
    MAPI_W_ERRORS_RETURNED,
    MAPI_W_POSITION_CHANGED,
    MAPI_W_NO_SERVICE,
    MAPI_E_NOT_FOUND,
    MAPI_E_DECLINE_COPY,
    MAPI_E_NOT_INITIALIZED,
    MAPI_E_NO_SUPPORT,
    MAPI_E_NO_ACCESS,
    MAPI_E_CALL_FAILED,
    MAPI_E_CORRUPT_DATA,
    MAPI_E_NETWORK_ERROR,
    MAPI_E_TOO_BIG,
    MAPI_E_NOT_ENOUGH_MEMORY,
    MAPI_E_CORRUPT_STORE,
    E_NOINTERFACE,
    static_cast<HRESULT>(0xFFFFFFFF),
    static_cast<HRESULT>(0x80AB1234),
};

LogId LevelOf(HRESULT hr)
{
    return hr < 0 ? LogId::Error : LogId::Warning;
}

std::wstring Widen(const std::string& text)
{
    return {text.begin(), text.end()};
}

std::wstring MapiText(HRESULT hr, const std::string& callName, bool withError = true)
{
    const MAPIERROR error = Recorder::ExtendedError();
    return Mapi::FormatMapiError(hr, Widen(callName).c_str(), withError ? &error : nullptr).GetString();
}

std::wstring ComText(HRESULT hr, const std::string& callName)
{
    return FormatErrorWithContext(FormatComError(hr), Widen(callName).c_str()).GetString();
}

/// What an out-of-the-way argument holds: a value of its own in every position, in its upper half too. A 32-bit one has
/// rubbish there, as real callers leave it, and all low bits set, so that flags that are cleared are seen.
RawArgument DistinctValue(char kind, std::size_t index)
{
    return kind == 'u' ? 0xDEADBEEF00000000 | (0x005A00FF + (index << 8)) : (index + 1) * 0x0710003200001111;
}

/// The arguments of one call, with the memory behind those that are looked into.
class CallArguments
{
public:
    explicit CallArguments(const char* kinds) : m_kinds(kinds)
    {
        m_value.ulPropTag = PR_SUBJECT_W;
        m_value.Value.lpszW = m_text;
        for (std::size_t index = 0; index < m_kinds.size(); ++index)
        {
            switch (m_kinds[index])
            {
            case 'V':
                raw[index] = reinterpret_cast<RawArgument>(&m_value);
                raw[index - 1] = 0xDEADBEEF00000000 | 1;
                break;
            case 'T':
                raw[index] = reinterpret_cast<RawArgument>(&m_tags);
                break;
            case 'G':
                raw[index] = reinterpret_cast<RawArgument>(&m_uid);
                break;
            case 'o':
            case 'O':
                m_outputs[index] = untouched;
                raw[index] = reinterpret_cast<RawArgument>(&m_outputs[index]);
                break;
            default:
                raw[index] = DistinctValue(m_kinds[index], index);
                break;
            }
        }
    }
    CallArguments(const CallArguments&) = delete;
    CallArguments& operator=(const CallArguments&) = delete;

    static constexpr RawArgument untouched = 0x5C5C5C5C5C5C5C5C;

    /// What stands in the output at `index`.
    RawArgument Output(std::size_t index) const { return m_outputs[index]; }
    /// Whether no output of the caller, nor the input behind pointers, was written to.
    bool OutputsUntouched() const
    {
        for (std::size_t index = 0; index < m_kinds.size(); ++index)
            if ((m_kinds[index] == 'o' || m_kinds[index] == 'O') && m_outputs[index] != untouched)
                return false;
        return true;
    }
    bool InputsUntouched() const
    {
        return m_value.ulPropTag == PR_SUBJECT_W && m_value.Value.lpszW == m_text && m_tags.cValues == 1 &&
               m_tags.aulPropTag[0] == PR_SUBJECT_W;
    }

    /// Expects `seen` to be these arguments; `flagsCleared` are bits that every flag argument in `flagsAt` lost.
    void ExpectSeen(const RawArguments& seen, std::size_t shift = 0) const
    {
        for (std::size_t index = 0; index < m_kinds.size(); ++index)
        {
            const RawArgument argument = seen[index + shift];
            const char kind = m_kinds[index];
            if (kind == 'u')
                EXPECT_EQ(static_cast<ULONG>(argument), static_cast<ULONG>(raw[index])) << "argument " << index + 1;
            else if (kind == 'o')
                EXPECT_TRUE(argument != 0 && argument != raw[index]) << "argument " << index + 1;
            else
                EXPECT_EQ(argument, raw[index]) << "argument " << index + 1;
        }
    }

    RawArguments raw = {};

private:
    std::string m_kinds;
    RawArguments m_outputs = {};
    wchar_t m_text[2] = L"x";
    SPropValue m_value = {};
    SPropTagArray m_tags = {1, {PR_SUBJECT_W}};
    MAPIUID m_uid = {{1, 2, 3}};
};

class SlotConformance : public testing::TestWithParam<SlotCase>
{
protected:
    SlotConformance() : m_class(*GetParam().wrapper), m_slot(*GetParam().slot), m_surroundings(m_class.hasLastError) {}

    void SetUp() override
    {
        SetModifyStores(GetParam().modify);
        m_wrapper = m_class.make(m_surroundings);
        ForgetAll();
    }

    void TearDown() override
    {
        SetModifyStores(false);
        if (!m_wrapper)
            return;
        EXPECT_EQ(Release(m_wrapper), 0u);
        for (const Recorder* const recorder : All())
            EXPECT_EQ(recorder->References(), 1u) << "after the wrapper's end";
    }

    static void TearDownTestSuite() { std::printf("slots checked: %zu\n", s_checked.size()); }

    std::vector<Recorder*> All()
    {
        return {&m_surroundings.wrapped, &m_surroundings.store, &m_surroundings.support, &m_surroundings.section};
    }
    void ForgetAll()
    {
        for (Recorder* const recorder : All())
            recorder->Forget();
    }
    void SetResultOfAll(HRESULT hr)
    {
        for (Recorder* const recorder : All())
            recorder->SetResult(hr);
    }

    static ULONG AddRef(void* object) { return static_cast<IUnknown*>(object)->AddRef(); }
    static ULONG Release(void* object) { return static_cast<IUnknown*>(object)->Release(); }

    int RealNumber() const { return RealSlot(m_slot.number, m_class.interfaceSlots); }
    std::string CallName() const { return m_class.interfaceName + "::" + m_slot.name; }
    /// The object that the class wraps.
    Recorder& Wrapped()
    {
        return m_class.interfaceName == "IMAPISupport" ? m_surroundings.support : m_surroundings.wrapped;
    }

    HRESULT Call(const CallArguments& arguments) { return CallSlot(m_wrapper, RealNumber(), arguments.raw); }

    /// Expects that nothing but `target` was called, and that all references are as they were.
    void ExpectOnlyCalled(const Recorder* target)
    {
        for (const Recorder* const recorder : All())
        {
            EXPECT_EQ(recorder->AddRefs(), recorder->Releases());
            if (recorder != target)
            {
                EXPECT_THAT(recorder->ErrorRequests(), IsEmpty());
                EXPECT_EQ(recorder->Calls().size(), 0u);
            }
        }
        // The wrapper's own count, too.
        EXPECT_EQ(AddRef(m_wrapper), 2u);
        EXPECT_EQ(Release(m_wrapper), 1u);
    }

    /// How many references on a wrapper are left when its client's last one goes in the middle of a call.
    enum class Left : ULONG
    {
        None, ///< of a call that is only passed on: it needs the wrapped object alone
        Own   ///< of a method that goes on with its wrapper afterwards, and keeps it
    };
    HRESULT CallReleased(Recorder& target, int slot, Left left, const CallArguments& arguments,
                         const Recorder::Behaviour& behaviour);
    void ExpectAllReleased()
    {
        for (const Recorder* const recorder : All())
            EXPECT_EQ(recorder->References(), 1u);
    }
    void CheckMissingOutputs();

    void CheckQueryInterface();
    void CheckReferences();
    void CheckPass(ULONG clearedFlags);
    void CheckCom();
    void CheckChecked();
    void CheckCompanion();
    void CheckRefused();
    void CheckIgnored();
    void CheckLogon(bool spooler);
    void CheckDestructor();
    void CheckFactory();
    void CheckHook();

    static inline std::set<std::string> s_checked;

    const WrapperClass& m_class;
    const Slot& m_slot;
    Surroundings m_surroundings;
    void* m_wrapper = nullptr;
};

TEST_P(SlotConformance, BehavesAsListed)
{
    const bool gated = !GetParam().modify;
    if (gated && (m_slot.gate == Gate::Refused || m_slot.gate == Gate::RefusedNaming))
        CheckRefused();
    else if (gated && m_slot.gate == Gate::Ignored)
        CheckIgnored();
    else
    {
        switch (m_slot.kind)
        {
        case Kind::QueryInterface:
            CheckQueryInterface();
            break;
        case Kind::AddRef:
        case Kind::Release:
            CheckReferences();
            break;
        case Kind::Pass:
            CheckPass(gated && m_slot.gate == Gate::ReadAccess ? MAPI_MODIFY | MAPI_BEST_ACCESS : 0);
            break;
        case Kind::Com:
            CheckCom();
            break;
        case Kind::Checked:
            CheckChecked();
            break;
        case Kind::Companion:
            CheckCompanion();
            break;
        case Kind::Logon:
            CheckLogon(false);
            break;
        case Kind::SpoolerLogon:
            CheckLogon(true);
            break;
        case Kind::Destructor:
            CheckDestructor();
            break;
        case Kind::Factory:
            CheckFactory();
            break;
        case Kind::Hook:
            CheckHook();
            break;
        }
    }
    for (int half = 0; half < (m_slot.kind == Kind::Destructor ? destructorSlots : 1); ++half)
        s_checked.insert(std::string(m_class.name) + m_slot.name + std::to_string(half));
}

INSTANTIATE_TEST_SUITE_P(Slots, SlotConformance, testing::ValuesIn(AllCases()), CaseName);

void SlotConformance::CheckQueryInterface()
{
    const LogCapture log;
    for (const IID& iid : m_class.own)
    {
        void* object = nullptr;
        EXPECT_EQ(CallSlot(m_wrapper, 0, {reinterpret_cast<RawArgument>(&iid), reinterpret_cast<RawArgument>(&object)}),
                  S_OK);
        EXPECT_EQ(object, m_wrapper);
        EXPECT_EQ(Release(m_wrapper), 1u);
    }
    ExpectOnlyCalled(nullptr);

    // Passed on: under which identifier, and with the very address that the caller gave.
    const auto expectPassedOn = [&](const IID& asked, const IID& passedOn)
    {
        for (const HRESULT hr : results)
        {
            LogCapture lines;
            ForgetAll();
            SetResultOfAll(hr);
            const RawArgument output = DistinctValue('p', 1);
            EXPECT_EQ(CallSlot(m_wrapper, 0, {reinterpret_cast<RawArgument>(&asked), output}), hr);
            ASSERT_EQ(Wrapped().Calls().size(), 1u);
            EXPECT_EQ(Wrapped().Calls()[0].slot, 0);
            EXPECT_EQ(*reinterpret_cast<const IID*>(Wrapped().Calls()[0].arguments[0]), passedOn);
            EXPECT_EQ(Wrapped().Calls()[0].arguments[1], output);
            EXPECT_THAT(Wrapped().ErrorRequests(), IsEmpty());
            ExpectOnlyCalled(&Wrapped());
            if (hr == S_OK || hr == E_NOINTERFACE)
                EXPECT_THAT(lines.Lines(), IsEmpty());
            else
                EXPECT_THAT(lines.Lines(), ElementsAre(Entry(LevelOf(hr), ComText(hr, CallName()))));
        }
    };
    for (const PrivateIid& iid : m_class.privateIids)
        expectPassedOn(iid.asked, iid.passedOn);
    for (const IID& iid : {IID_IMSProvider, IID_IMSLogon, IID_IMsgStore, IID_IMAPIFolder, IID_IMAPIContainer,
                           IID_IMAPIProp, IID_IMAPITable, IID_IMessage, IID_IAttachment, IID_IMAPISup, IID_IProfSect,
                           IID_IStream, IID{0x12345678, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}}})
    {
        if (std::ranges::find(m_class.own, iid) != m_class.own.end())
            continue;
        if (m_class.foreign == Foreign::PassedOn)
        {
            expectPassedOn(iid, iid);
            continue;
        }
        LogCapture lines;
        ForgetAll();
        void* object = this;
        EXPECT_EQ(CallSlot(m_wrapper, 0, {reinterpret_cast<RawArgument>(&iid), reinterpret_cast<RawArgument>(&object)}),
                  E_NOINTERFACE);
        EXPECT_EQ(object, nullptr);
        EXPECT_THAT(lines.Lines(), IsEmpty());
        ExpectOnlyCalled(nullptr);
    }
}

void SlotConformance::CheckReferences()
{
    const LogCapture log;
    const auto call = [this](int slot) { return static_cast<ULONG>(CallSlot(m_wrapper, slot, {})); };
    EXPECT_EQ(call(1), 2u);
    EXPECT_EQ(call(1), 3u);
    EXPECT_EQ(call(2), 2u);
    EXPECT_EQ(call(2), 1u);
    ExpectOnlyCalled(nullptr);

    // The last one ends the wrapper and gives back exactly what its constructor took.
    ForgetAll();
    EXPECT_EQ(call(2), 0u);
    m_wrapper = nullptr;
    EXPECT_EQ(Wrapped().Releases(), 1);
    EXPECT_EQ(m_surroundings.store.Releases(), m_class.holdsStore ? 1 : 0);
    EXPECT_EQ(m_surroundings.support.Releases(), m_class.holdsSupport ? 1 : 0);
    EXPECT_EQ(m_surroundings.section.Releases(), m_class.holdsSection ? 1 : 0);
    for (const Recorder* const recorder : All())
        EXPECT_EQ(recorder->References(), 1u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

void SlotConformance::CheckPass(ULONG clearedFlags)
{
    // The last 32-bit argument is the flags in the methods that clear some.
    const std::string kinds = m_slot.arguments;
    const std::size_t flags = kinds.rfind('u');
    for (const bool givesError : {true, false})
    {
        for (const HRESULT hr : results)
        {
            SCOPED_TRACE(testing::Message() << std::hex << hr);
            LogCapture log;
            ForgetAll();
            SetResultOfAll(hr);
            Wrapped().SetGivesError(givesError);
            CallArguments arguments(m_slot.arguments);
            EXPECT_EQ(Call(arguments), hr);

            ASSERT_EQ(Wrapped().Calls().size(), 1u);
            const Recorder::Call& call = Wrapped().Calls()[0];
            EXPECT_EQ(call.slot, m_slot.number);
            EXPECT_EQ(call.references, 3u) << "the method's own reference, the wrapper's, the test's";
            if (clearedFlags)
                arguments.raw[flags] &= ~static_cast<RawArgument>(clearedFlags);
            arguments.ExpectSeen(call.arguments);
            EXPECT_TRUE(arguments.InputsUntouched());
            EXPECT_TRUE(arguments.OutputsUntouched() || (hr >= 0 && kinds.find('o') != std::string::npos));
            ExpectOnlyCalled(&Wrapped());
            if (hr == S_OK || hr == m_slot.quiet)
            {
                EXPECT_THAT(Wrapped().ErrorRequests(), IsEmpty());
                EXPECT_THAT(log.Lines(), IsEmpty());
            }
            else
            {
                EXPECT_THAT(Wrapped().ErrorRequests(), ElementsAre(hr));
                EXPECT_THAT(log.Lines(), ElementsAre(Entry(LevelOf(hr), MapiText(hr, CallName(), givesError))));
            }
        }
    }

    if (kinds.find('o') != std::string::npos)
    {
        CheckMissingOutputs();
        Recorder opened;
        const CallArguments arguments(m_slot.arguments);
        EXPECT_EQ(CallReleased(Wrapped(), m_slot.number, Left::Own, arguments,
                               [&opened](const RawArguments& seen)
                               {
                                   *reinterpret_cast<ULONG*>(seen[4]) = MAPI_STORE;
                                   *reinterpret_cast<void**>(seen[5]) = &opened;
                                   opened.As<IUnknown>()->AddRef();
                                   return S_OK;
                               }),
                  S_OK);
        EXPECT_EQ(arguments.Output(5), reinterpret_cast<RawArgument>(&opened));
        ExpectAllReleased();
        return;
    }
    const CallArguments arguments(m_slot.arguments);
    EXPECT_EQ(CallReleased(Wrapped(), m_slot.number, Left::None, arguments,
                           [this](const RawArguments&) { return m_slot.quiet; }),
              m_slot.quiet);
    ExpectAllReleased();
}

/// Makes the call, in the middle of which the wrapper loses its client's last reference: the object that is called
/// outlives the call. `target` is the object that is called, in `slot`, and does as `behaviour` says.
HRESULT SlotConformance::CallReleased(Recorder& target, int slot, Left left, const CallArguments& arguments,
                                      const Recorder::Behaviour& behaviour)
{
    const LogCapture log;
    ForgetAll();
    SetResultOfAll(S_OK);
    target.SetBehaviour(slot,
                        [&](const RawArguments& seen)
                        {
                            EXPECT_EQ(Release(std::exchange(m_wrapper, nullptr)), static_cast<ULONG>(left));
                            EXPECT_GE(target.References(), 2u) << "the method's own reference and the test's";
                            return behaviour(seen);
                        });
    const HRESULT hr = Call(arguments);
    EXPECT_EQ(m_wrapper, nullptr) << "the object was not called";
    return hr;
}

/// Calls a method without a place for what it is to give: the wrapped object sees that there is none, and its answer is
/// the method's.
void SlotConformance::CheckMissingOutputs()
{
    const std::string kinds = m_slot.arguments;
    for (std::size_t missing = 0; missing < kinds.size(); ++missing)
    {
        // The type of an opened object is one that the method needs itself.
        if (kinds[missing] != 'O' && missing != kinds.rfind('o'))
            continue;
        for (const HRESULT hr : {S_OK, MAPI_E_INVALID_PARAMETER})
        {
            SCOPED_TRACE(testing::Message() << "argument " << missing + 1 << ", " << std::hex << hr);
            const LogCapture log;
            ForgetAll();
            SetResultOfAll(hr);
            Wrapped().SetBehaviour(m_slot.number,
                                   [&](const RawArguments& seen)
                                   {
                                       EXPECT_EQ(seen[missing], 0u);
                                       return hr;
                                   });
            CallArguments arguments(m_slot.arguments);
            arguments.raw[missing] = 0;
            EXPECT_EQ(Call(arguments), hr);
            EXPECT_EQ(Wrapped().Calls().size(), 1u);
            EXPECT_TRUE(arguments.OutputsUntouched());
            ExpectOnlyCalled(&Wrapped());
        }
    }
}

void SlotConformance::CheckCom()
{
    for (const HRESULT hr : results)
    {
        SCOPED_TRACE(testing::Message() << std::hex << hr);
        LogCapture log;
        ForgetAll();
        SetResultOfAll(hr);
        const CallArguments arguments(m_slot.arguments);
        EXPECT_EQ(Call(arguments), hr);
        ASSERT_EQ(Wrapped().Calls().size(), 1u);
        EXPECT_EQ(Wrapped().Calls()[0].slot, m_slot.number);
        EXPECT_EQ(Wrapped().Calls()[0].references, 2u) << "no reference of its own";
        arguments.ExpectSeen(Wrapped().Calls()[0].arguments);
        ExpectOnlyCalled(&Wrapped());
        if (hr == S_OK)
            EXPECT_THAT(log.Lines(), IsEmpty());
        else
            EXPECT_THAT(log.Lines(), ElementsAre(Entry(LevelOf(hr), ComText(hr, CallName()))));
    }
}

void SlotConformance::CheckChecked()
{
    const std::string kinds = m_slot.arguments;
    const std::size_t given = kinds.rfind('o'); // the output for a wrapped object; GetProps has none
    const bool givesObject = given != std::string::npos;
    for (const HRESULT hr : results)
    {
        SCOPED_TRACE(testing::Message() << std::hex << hr);
        LogCapture log;
        ForgetAll();
        SetResultOfAll(hr);
        Recorder created;
        Wrapped().SetBehaviour(m_slot.number,
                               [&](const RawArguments& arguments)
                               {
                                   if (hr < 0)
                                       return hr;
                                   if (givesObject)
                                   {
                                       created.As<IUnknown>()->AddRef();
                                       *reinterpret_cast<void**>(arguments[given]) = &created;
                                   }
                                   else
                                   {
                                       *reinterpret_cast<ULONG*>(arguments[2]) = 0;
                                       *reinterpret_cast<void**>(arguments[3]) = nullptr;
                                   }
                                   return hr;
                               });
        const CallArguments arguments(m_slot.arguments);
        // A method that gives an object has one success code; GetProps hands warnings on.
        EXPECT_EQ(Call(arguments), hr < 0 || !givesObject ? hr : S_OK);

        ASSERT_EQ(Wrapped().Calls().size(), 1u);
        EXPECT_EQ(Wrapped().Calls()[0].slot, m_slot.number);
        EXPECT_EQ(Wrapped().Calls()[0].references, 3u);
        arguments.ExpectSeen(Wrapped().Calls()[0].arguments);
        if (givesObject && hr >= 0)
        {
            auto* const object = reinterpret_cast<IUnknown*>(arguments.Output(given));
            EXPECT_NE(reinterpret_cast<void*>(object), &created);
            EXPECT_EQ(created.References(), 2u);
            EXPECT_EQ(object->Release(), 0u);
        }
        else if (hr < 0)
        {
            EXPECT_TRUE(arguments.OutputsUntouched());
        }
        EXPECT_EQ(created.References(), 1u);
        ExpectOnlyCalled(&Wrapped());

        if (hr == S_OK || hr == m_slot.quiet)
        {
            EXPECT_THAT(Wrapped().ErrorRequests(), IsEmpty());
            EXPECT_THAT(log.Lines(), IsEmpty());
            continue;
        }
        EXPECT_THAT(Wrapped().ErrorRequests(), ElementsAre(hr));
        const std::wstring text = MapiText(hr, "");
        if (hr > 0)
        {
            EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Warning, text)));
        }
        else
        {
            EXPECT_THAT(log.Lines(), ElementsAre(Throwing(m_class.File(), m_class.Function(m_slot.name), text),
                                                 Caught(m_class.File(), m_class.Function(m_slot.name), text)));
        }
    }

    CheckMissingOutputs();
    Recorder created;
    const CallArguments arguments(m_slot.arguments);
    // GetProps needs its wrapper for the hook; CreateFolder gives the new wrapper what its own holds.
    EXPECT_EQ(CallReleased(Wrapped(), m_slot.number, Left::Own, arguments,
                           [&](const RawArguments& seen)
                           {
                               if (givesObject)
                               {
                                   created.As<IUnknown>()->AddRef();
                                   *reinterpret_cast<void**>(seen[given]) = &created;
                               }
                               else
                               {
                                   *reinterpret_cast<ULONG*>(seen[2]) = 0;
                                   *reinterpret_cast<void**>(seen[3]) = nullptr;
                               }
                               return S_OK;
                           }),
              S_OK);
    EXPECT_EQ(givesObject ? Release(reinterpret_cast<void*>(arguments.Output(given))) : 0, 0u);
    EXPECT_EQ(created.References(), 1u);
    ExpectAllReleased();
}

void SlotConformance::CheckCompanion()
{
    const std::string name = m_slot.name;
    const bool isLogon = m_class.interfaceName == "IMSLogon";
    const bool isCopy = name == "CopyFolder";
    Recorder& target = isCopy ? m_surroundings.support : m_surroundings.store;
    Recorder& errorSource = isLogon ? Wrapped() : target;
    const int targetSlot = isCopy ? 26 : 17;
    const std::string callName =
        isLogon ? "IMSLogon::OpenEntry" : (isCopy ? "IMAPISupport::CopyFolder" : "IMsgStore::OpenEntry");
    for (const HRESULT hr : results)
    {
        SCOPED_TRACE(testing::Message() << std::hex << hr);
        LogCapture log;
        ForgetAll();
        SetResultOfAll(hr);
        ULONG errorSourceReferences = 0;
        target.SetBehaviour(targetSlot,
                            [&](const RawArguments&)
                            {
                                errorSourceReferences = errorSource.References();
                                return hr;
                            });
        const CallArguments arguments(m_slot.arguments);
        EXPECT_EQ(Call(arguments), hr);
        ASSERT_EQ(target.Calls().size(), 1u);
        const Recorder::Call& call = target.Calls()[0];
        EXPECT_EQ(call.slot, targetSlot);
        EXPECT_EQ(errorSourceReferences, 3u);
        if (isCopy)
        {
            EXPECT_EQ(*reinterpret_cast<const IID*>(call.arguments[0]), IID_IMessage);
            EXPECT_EQ(call.arguments[1], reinterpret_cast<RawArgument>(m_wrapper));
        }
        arguments.ExpectSeen(call.arguments, isCopy ? 2 : 0);
        const bool quiet = hr == S_OK;
        EXPECT_THAT(errorSource.ErrorRequests(), quiet ? std::vector<HRESULT>() : std::vector<HRESULT>{hr});
        if (quiet)
            EXPECT_THAT(log.Lines(), IsEmpty());
        else
            EXPECT_THAT(log.Lines(), ElementsAre(Entry(LevelOf(hr), MapiText(hr, callName))));
        for (const Recorder* const recorder : All())
        {
            EXPECT_EQ(recorder->AddRefs(), recorder->Releases());
            EXPECT_TRUE(recorder == &target || recorder->Calls().empty());
            EXPECT_TRUE(recorder == &errorSource || recorder->ErrorRequests().empty());
        }
    }

    // The copy is made of the wrapper itself, and the logon is asked for its error afterwards.
    const CallArguments arguments(m_slot.arguments);
    EXPECT_EQ(CallReleased(target, targetSlot, isCopy || isLogon ? Left::Own : Left::None, arguments,
                           [](const RawArguments&) { return S_OK; }),
              S_OK);
    ExpectAllReleased();
}

void SlotConformance::CheckRefused()
{
    static constexpr wchar_t displayName[] = L"100%s";
    const bool naming = m_slot.gate == Gate::RefusedNaming;
    const auto giveName = [](const RawArguments& arguments) -> HRESULT
    {
        *reinterpret_cast<ULONG*>(arguments[2]) = 1;
        *reinterpret_cast<SPropValue**>(arguments[3]) = AllocateProps({TextValue(PR_DISPLAY_NAME_W, displayName)});
        return S_OK;
    };
    Wrapped().SetBehaviour(5, giveName);
    const LogCapture log;
    const CallArguments arguments(m_slot.arguments);
    EXPECT_EQ(Call(arguments), MAPI_E_NO_ACCESS);
    EXPECT_TRUE(arguments.OutputsUntouched());
    EXPECT_TRUE(arguments.InputsUntouched());
    ASSERT_EQ(Wrapped().Calls().size(), naming ? 1u : 0u);
    EXPECT_EQ(naming ? Wrapped().Calls()[0].slot : 5, 5);
    ExpectOnlyCalled(&Wrapped());

    const std::vector<LogLine> lines = log.Lines();
    const bool detailed = std::string_view(m_slot.arguments).find_first_of("VT") != std::string_view::npos;
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0].level, LogId::Warning);
    EXPECT_FALSE(lines[0].isDetail);
    EXPECT_EQ(lines[0].text.find(Widen(CallName() + " called ")), 0u) << Narrow(lines[0].text);
    EXPECT_NE(lines[0].text.find(L"; returning MAPI_E_NO_ACCESS"), std::wstring::npos) << Narrow(lines[0].text);
    EXPECT_THAT(std::vector(lines.begin() + 1, lines.end()),
                testing::ElementsAreArray(std::vector(detailed ? 1 : 0, Detail(LogId::Warning, L"PR_SUBJECT_W"))));
    if (!naming)
        return;
    EXPECT_TRUE(lines[0].text.ends_with(std::wstring(L": ") + displayName)) << Narrow(lines[0].text);
    EXPECT_EQ(CallReleased(Wrapped(), 5, Left::Own, arguments, giveName), MAPI_E_NO_ACCESS);
    ExpectAllReleased();
}

void SlotConformance::CheckIgnored()
{
    const LogCapture log;
    SetResultOfAll(MAPI_E_CALL_FAILED);
    const CallArguments arguments(m_slot.arguments);
    EXPECT_EQ(Call(arguments), S_OK);
    ExpectOnlyCalled(nullptr);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

/// A GetProps behaviour that has none of the properties.
HRESULT GiveNothing(const RawArguments& arguments)
{
    const auto* const tags = reinterpret_cast<const SPropTagArray*>(arguments[0]);
    std::vector<Property> values;
    values.reserve(tags->cValues);
    for (ULONG index = 0; index < tags->cValues; ++index)
        values.push_back(ErrorValue(tags->aulPropTag[index], MAPI_E_NOT_FOUND));
    *reinterpret_cast<ULONG*>(arguments[2]) = tags->cValues;
    *reinterpret_cast<SPropValue**>(arguments[3]) = AllocateProps(values);
    return MAPI_W_ERRORS_RETURNED;
}

void SlotConformance::CheckLogon(bool spooler)
{
    constexpr int openProfileSection = 9;
    constexpr int getProps = 5;
    constexpr std::size_t flagsAt = 5;
    constexpr std::size_t logonAt = 10;
    constexpr std::size_t storeAt = 11;
    Surroundings& s = m_surroundings;
    s.support.SetBehaviour(openProfileSection,
                           [&s](const RawArguments& arguments) -> HRESULT
                           {
                               s.section.As<IUnknown>()->AddRef();
                               *reinterpret_cast<void**>(arguments[2]) = &s.section;
                               return S_OK;
                           });
    s.section.SetBehaviour(getProps, GiveNothing);
    s.store.SetBehaviour(getProps, GiveNothing);
    Recorder logon;
    const ATL::CComQIPtr<IMAPISupport> supportPointer(s.support.As<IMAPISupport>());
    ATL::CComQIPtr<IMAPISupport> sample;
    sample.Attach(new CNstMapiSupport(supportPointer, nullptr));
    void* const supportTable = *reinterpret_cast<void**>(sample.p);

    for (const HRESULT hr : results)
    {
        SCOPED_TRACE(testing::Message() << std::hex << hr);
        LogCapture log;
        void* logonOutput = &logon;
        void* storeOutput = &logon;
        RawArguments arguments = {};
        for (std::size_t index = 0; index < std::strlen(m_slot.arguments); ++index)
            arguments[index] = DistinctValue(m_slot.arguments[index], index);
        arguments[0] = reinterpret_cast<RawArgument>(&s.support);
        arguments[flagsAt] = 0xDEADBEEF00000000 | 0xA5A5F7FF; // 0x1000 set, 0x800 clear
        arguments[logonAt] = reinterpret_cast<RawArgument>(&logonOutput);
        arguments[storeAt] = reinterpret_cast<RawArgument>(&storeOutput);
        ForgetAll();
        s.store.SetResult(S_OK);
        Wrapped().SetBehaviour(m_slot.number,
                               [&](const RawArguments& seen)
                               {
                                   EXPECT_NE(seen[0], arguments[0]);
                                   EXPECT_EQ(**reinterpret_cast<void***>(seen[0]), *static_cast<void**>(supportTable));
                                   EXPECT_EQ(*reinterpret_cast<void**>(seen[0]), supportTable);
                                   for (std::size_t index = 1; index < logonAt; ++index)
                                   {
                                       const bool isNumber = m_slot.arguments[index] == 'u';
                                       RawArgument expected = arguments[index];
                                       if (index == flagsAt && !spooler)
                                           expected = 0xA5A5EFFF;
                                       EXPECT_EQ(isNumber ? static_cast<ULONG>(seen[index]) : seen[index],
                                                 isNumber ? static_cast<ULONG>(expected) : expected)
                                           << "argument " << index + 1;
                                   }
                                   EXPECT_EQ(seen[logonAt] == arguments[logonAt], spooler);
                                   EXPECT_EQ(seen[storeAt] == arguments[storeAt], spooler);
                                   if (hr < 0)
                                       return hr;
                                   logon.As<IUnknown>()->AddRef();
                                   s.store.As<IUnknown>()->AddRef();
                                   *reinterpret_cast<void**>(seen[logonAt]) = &logon;
                                   *reinterpret_cast<void**>(seen[storeAt]) = &s.store;
                                   return hr;
                               });
        std::vector<const Recorder*> released;
        for (Recorder* const recorder : {&logon, &s.store})
            recorder->SetReleaseCallback([&released, recorder](ULONG) { released.push_back(recorder); });
        EXPECT_EQ(CallSlot(m_wrapper, RealNumber(), arguments), hr < 0 ? hr : S_OK);
        for (Recorder* const recorder : {&logon, &s.store})
            recorder->SetReleaseCallback({});
        std::vector<const Recorder*> expectedReleased;
        if (hr >= 0 && !spooler)
            expectedReleased = {&logon, &s.store};
        EXPECT_EQ(released, expectedReleased) << "the method's own references on what the PST provider gave";
        EXPECT_EQ(Wrapped().Calls().size(), 1u);
        EXPECT_EQ(s.support.Calls().size(), 1u);
        EXPECT_EQ(s.section.References(), hr >= 0 && !spooler ? 2u : 1u) << "the store wrapper's support object's";

        const std::wstring function = m_class.Function(m_slot.name);
        if (hr == S_OK)
        {
            EXPECT_THAT(log.Lines(), IsEmpty());
        }
        else if (hr > 0)
        {
            EXPECT_THAT(log.Lines(),
                        ElementsAre(Event(L"Non-success condition during COM call", m_class.File(), function,
                                          FormatSystemError(static_cast<unsigned>(hr), true).GetString())));
        }
        else
        {
            const std::wstring text = CComError(hr).Format().GetString();
            EXPECT_THAT(log.Lines(),
                        ElementsAre(Throwing(m_class.File(), function, text), Caught(m_class.File(), function, text)));
        }

        if (hr < 0)
        {
            EXPECT_EQ(logonOutput, &logon) << "left as it was";
            EXPECT_EQ(storeOutput, spooler ? static_cast<void*>(&logon) : nullptr);
        }
        else
        {
            EXPECT_EQ(logonOutput == &logon, spooler);
            EXPECT_EQ(storeOutput == &s.store, spooler);
            Release(logonOutput);
            Release(storeOutput);
        }
        EXPECT_EQ(logon.References(), 1u);
        EXPECT_EQ(s.store.References(), 1u);
        EXPECT_EQ(s.section.References(), 1u);
        EXPECT_EQ(s.support.References(), 3u) << "the test's, the local pointer's, the sample's";
    }

    // The factories are the wrapper's.
    void* logonOutput = nullptr;
    void* storeOutput = nullptr;
    CallArguments arguments(m_slot.arguments);
    arguments.raw[0] = reinterpret_cast<RawArgument>(&s.support);
    arguments.raw[logonAt] = reinterpret_cast<RawArgument>(&logonOutput);
    arguments.raw[storeAt] = reinterpret_cast<RawArgument>(&storeOutput);
    EXPECT_EQ(CallReleased(Wrapped(), m_slot.number, Left::Own, arguments,
                           [&](const RawArguments& seen)
                           {
                               logon.As<IUnknown>()->AddRef();
                               s.store.As<IUnknown>()->AddRef();
                               *reinterpret_cast<void**>(seen[logonAt]) = &logon;
                               *reinterpret_cast<void**>(seen[storeAt]) = &s.store;
                               return S_OK;
                           }),
              S_OK);
    Release(logonOutput);
    Release(storeOutput);
    EXPECT_EQ(logon.References(), 1u);
    EXPECT_EQ(s.store.References(), 1u);
    EXPECT_EQ(Wrapped().References(), 1u);
}

void SlotConformance::CheckDestructor()
{
    // Drops the references in the reverse order of the members.
    const LogCapture log;
    std::vector<const Recorder*> order;
    for (Recorder* const recorder : All())
        recorder->SetReleaseCallback([&order, recorder](ULONG) { order.push_back(recorder); });
    Surroundings& s = m_surroundings;
    std::vector<const Recorder*> expected;
    const std::string name = m_class.interfaceName;
    if (name == "IMSLogon")
        expected = {&s.store, &s.wrapped};
    else if (name == "IMsgStore")
        expected = {&s.support, &s.wrapped};
    else if (name == "IMAPIFolder")
        expected = {&s.support, &s.wrapped, &s.store};
    else if (name == "IMAPISupport")
        expected = {&s.section, &s.support};
    else
        expected = {&s.wrapped};

    const int slot = m_slot.number;
#if defined(_MSC_VER)
    constexpr RawArgument deleteToo = 1;
    CallSlot(m_wrapper, slot, {deleteToo});
    m_wrapper = nullptr;
    EXPECT_EQ(order, expected);
    m_wrapper = m_class.make(m_surroundings);
    order.clear();
    CallSlot(m_wrapper, slot, {0});
    FreeObject(m_wrapper);
#else
    CallSlot(m_wrapper, slot + 1, {}); // destroys and deletes
    m_wrapper = nullptr;
    EXPECT_EQ(order, expected);
    m_wrapper = m_class.make(m_surroundings);
    order.clear();
    CallSlot(m_wrapper, slot, {}); // destroys in place
    FreeObject(m_wrapper);
#endif
    m_wrapper = nullptr;
    EXPECT_EQ(order, expected);
    for (const Recorder* const recorder : All())
        EXPECT_EQ(recorder->References(), 1u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

/// Calls a factory, which takes counted pointers by reference and returns one by value. Gives the pointer with its
/// reference.
void* CallFactory(void* object, int slot, void* first, void* second)
{
    void* result = nullptr;
    void* const function = (*static_cast<void***>(object))[slot];
#if defined(_MSC_VER)
    reinterpret_cast<void* (*)(void*, void**, void**, void**)>(function)(object, &result, &first, &second);
#else
    reinterpret_cast<void* (*)(void**, void*, void**, void**)>(function)(&result, object, &first, &second);
#endif
    return result;
}

void SlotConformance::CheckFactory()
{
    // What each makes: recognised by its virtual table, and by what it holds.
    struct Product
    {
        const char* factory;
        const char* made;
        Recorder* first;
        Recorder* second;
    };
    Surroundings& s = m_surroundings;
    Recorder given;
    const Product products[] = {
        {"CreateMapiSupport", "CNstMapiSupport", &s.support, &s.section},
        {"CreateMessageStore", "CNstMsgStore", &given, &s.support},
        {"CreateMsLogon", "CNstMsLogon", &given, &s.store},
        {"CreateFolder", "CNstMapiFolder", &given, nullptr},
        {"CreateMessage", "CNstMessage", &given, nullptr},
    };
    const auto product =
        std::ranges::find(products, std::string_view(m_slot.name), [](const Product& p) { return p.factory; });
    ASSERT_NE(product, std::end(products));
    const auto made =
        std::ranges::find(GetClasses(), std::string_view(product->made), [](const WrapperClass& c) { return c.name; });

    const LogCapture log;
    void* const object = CallFactory(m_wrapper, RealNumber(), product->first, product->second);
    ASSERT_NE(object, nullptr);
    Surroundings others(true);
    void* const sample = made->make(others);
    EXPECT_EQ(*static_cast<void**>(object), *static_cast<void**>(sample)) << "of class " << product->made;
    EXPECT_EQ(Release(sample), 0u);
    EXPECT_EQ(product->first->References(), 2u + (product->first == &Wrapped() ? 1 : 0));
    if (std::string_view(m_slot.name) == "CreateFolder")
    {
        EXPECT_EQ(AddRef(m_wrapper), 3u) << "the folder holds the store wrapper";
        Release(m_wrapper);
        EXPECT_EQ(s.support.References(), 3u) << "and the support object";
    }
    else if (product->second)
    {
        EXPECT_EQ(product->second->References(), 2u + (product->second == &s.support && m_class.holdsSupport ? 1 : 0));
    }
    EXPECT_EQ(Release(object), 0u);
    EXPECT_EQ(given.References(), 1u);
    ExpectOnlyCalled(nullptr);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

void SlotConformance::CheckHook()
{
    const std::string_view name = m_slot.name;
    void* const function = (*static_cast<void***>(m_wrapper))[RealNumber()];
    const LogCapture log;
    if (name == "ConfigureNstSubtreeEntryId")
    {
        // A store that has its subtree root already is only asked for it.
        Surroundings& s = m_surroundings;
        s.store.SetBehaviour(
            5,
            [](const RawArguments& arguments) -> HRESULT
            {
                EXPECT_THAT(reinterpret_cast<SPropTagArray*>(arguments[0]), Tags(std::vector<ULONG>{0x7FE20102}));
                *reinterpret_cast<ULONG*>(arguments[2]) = 1;
                *reinterpret_cast<SPropValue**>(arguments[3]) = AllocateProps({BinaryValue(0x7FE20102, {1, 2})});
                return S_OK;
            });
        void* store = &s.store;
        reinterpret_cast<void (*)(void*, void**)>(function)(m_wrapper, &store);
        EXPECT_EQ(s.store.Calls().size(), 1u);
        ExpectOnlyCalled(&s.store);
        return;
    }

    // What each of the property hooks makes of the same values; one that has them for a plain class changes nothing.
    struct Row
    {
        ULONG tag;
        LONG before;
        LONG readOnlyStore;
        LONG modifiableStore;
        LONG readOnlyFolder;
        LONG readOnlyMessage;
    };
    static constexpr Row rows[] = {
        {PR_ACCESS, 0x3F, 2, 0x3F, 2, 2},
        {PR_ACCESS_LEVEL, 1, 0, 1, 0, 0},
        {PR_STORE_SUPPORT_MASK, 0x0025001D, 0x00050007, 0x0005001D, 0x00050007, 0x0025001D},
        {0x340F0003, 0x00240019, 0x00040003, 0x00040019, 0x00040003, 0x00240019},
        {0x66390003, 0x7FB, 0x7FB, 0x7FB, 0x401, 0x7FB},
        {CHANGE_PROP_TYPE(PR_ACCESS, PT_ERROR), 0x3F, 0x3F, 0x3F, 0x3F, 0x3F},
    };
    std::vector<SPropValue> values;
    for (const Row& row : rows)
    {
        SPropValue value = {};
        value.ulPropTag = row.tag;
        value.Value.l = row.before;
        values.push_back(value);
    }
    reinterpret_cast<void (*)(void*, SPropValue*, ULONG)>(function)(m_wrapper, values.data(),
                                                                    static_cast<ULONG>(values.size()));
    for (std::size_t index = 0; index < values.size(); ++index)
    {
        const Row& row = rows[index];
        LONG expected = row.before;
        if (name == "OverrideStoreProperties")
            expected = row.readOnlyStore;
        else if (name == "OverrideModifiableStoreProperties")
            expected = row.modifiableStore;
        else if (!GetParam().modify && std::string_view(m_class.name) == "CReadOnlyFolder")
            expected = row.readOnlyFolder;
        else if (!GetParam().modify && std::string_view(m_class.name) == "CReadOnlyMessage")
            expected = row.readOnlyMessage;
        EXPECT_EQ(values[index].Value.l, expected) << std::hex << row.tag;
        EXPECT_EQ(values[index].ulPropTag, row.tag);
    }
    ExpectOnlyCalled(nullptr);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

class SlotList : public testing::TestWithParam<WrapperClass>
{
};

TEST_P(SlotList, NamesEverySlotOfTheVirtualTableOnce)
{
    const WrapperClass& wrapper = GetParam();
    int number = 0;
    std::set<std::string> names;
    for (const Slot& slot : wrapper.slots)
    {
        EXPECT_EQ(slot.number, number) << slot.name;
        EXPECT_EQ(slot.kind == Kind::Destructor, number == wrapper.interfaceSlots) << slot.name;
        EXPECT_TRUE(names.insert(slot.name).second) << slot.name << " is listed twice";
        ++number;
    }
    EXPECT_EQ(number + destructorSlots - 1, wrapper.countVirtualSlots());
}

INSTANTIATE_TEST_SUITE_P(Slots, SlotList, testing::ValuesIn(GetClasses()),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(SlotConformanceTable, HasEveryExportedWrapperClass)
{
    std::size_t rows = 0;
    for (const WrapperClass& wrapper : GetClasses())
        rows += wrapper.slots.size();
    EXPECT_EQ(GetClasses().size(), 10u);
    EXPECT_EQ(rows, 254u);
}

} // namespace
} // namespace Tests

// What a client does with an open store.
#include "nst/KivNstCore.h"
#include "nst/NstAttach.h"
#include "nst/NstMapiTable.h"
#include "nst/NstMsLogon.h"
#include "nst/ReadOnlyFolder.h"
#include "nst/ReadOnlyMessage.h"
#include "support/com_wrap.h"
#include "tests/faults/Operation.h"

#include <gtest/gtest.h>

using namespace Quillon;

namespace Tests
{
namespace
{

constexpr Site storeGetProps = {L"NstMsgStore.cpp", L"Quillon::Nst::CNstMsgStore::GetProps"};
constexpr Site storeOpenEntry = {L"NstMsgStore.cpp", L"Quillon::Nst::CNstMsgStore::OpenEntry"};
constexpr Site folderGetProps = {L"NstMapiFolder.cpp", L"Quillon::Nst::CNstMapiFolder::GetProps"};
constexpr Site contentsTable = {L"NstMapiFolder.cpp", L"Quillon::Nst::CNstMapiFolder::GetContentsTable"};
constexpr Site hierarchyTable = {L"NstMapiFolder.cpp", L"Quillon::Nst::CNstMapiFolder::GetHierarchyTable"};
constexpr Site createMessage = {L"NstMapiFolder.cpp", L"Quillon::Nst::CNstMapiFolder::CreateMessage"};
constexpr Site createFolder = {L"NstMapiFolder.cpp", L"Quillon::Nst::CNstMapiFolder::CreateFolder"};
constexpr Site messageGetProps = {L"NstMessage.cpp", L"Quillon::Nst::CNstMessage::GetProps"};
constexpr Site attachmentGetProps = {L"NstAttach.cpp", L"Quillon::Nst::CNstAttach::GetProps"};

/// The access that every object of the PST allows.
constexpr LONG access = 0x3F;

/// Store modification on or off while it lives.
class Modification
{
public:
    explicit Modification(bool on) { Nst::SetModifyStores(on); }
    Modification(const Modification&) = delete;
    Modification& operator=(const Modification&) = delete;
    ~Modification() { Nst::SetModifyStores(false); }
};

ATL::CComQIPtr<IMsgStore> WrapStore(Surroundings& surroundings)
{
    return com_wrap<IMsgStore>(
        new FaultyStore(surroundings.store.As<IMsgStore>(), surroundings.support.As<IMAPISupport>()));
}

ATL::CComQIPtr<IMAPIFolder> WrapFolder(Surroundings& surroundings)
{
    return com_wrap<IMAPIFolder>(new FaultyFolder(surroundings.folder.As<IMAPIFolder>(),
                                                  surroundings.store.As<IMsgStore>(),
                                                  surroundings.support.As<IMAPISupport>()));
}

/// GetProps of three properties, of which the second is not there; `check` sees the values in success.
template <class Check>
HRESULT ReadProps(Surroundings& surroundings, IMAPIProp* object, Check&& check)
{
    struct
    {
        ULONG count = 3;
        ULONG tags[3] = {PR_ACCESS, PR_DISPLAY_NAME_W, PR_IPM_SUBTREE_ENTRYID};
    } tags;
    ULONG count = 0;
    SPropValue* values = nullptr;
    const HRESULT hr =
        surroundings.Run([&] { return object->GetProps(reinterpret_cast<SPropTagArray*>(&tags), 0, &count, &values); });
    if (SUCCEEDED(hr))
    {
        EXPECT_EQ(count, 3u);
        check(values);
    }
    // The values stay the caller's when a hook fails after the object gave them.
    if (values)
        MapiModule::Get().Free(values);
    return hr;
}

HRESULT ReadStore(Surroundings& surroundings, bool modify)
{
    const Modification modification(modify);
    const ATL::CComQIPtr<IMsgStore> store = WrapStore(surroundings);
    return ReadProps(surroundings, store,
                     [modify](const SPropValue* values)
                     {
                         EXPECT_EQ(values[0].Value.l, modify ? access : MAPI_ACCESS_READ);
                         EXPECT_EQ(BytesOf(values[2]), (Bytes{7, 8, 9}));
                     });
}

Operation StoreGetProps(const char* name, bool modify, const char* hook, const wchar_t* function)
{
    const auto notConfigured = [function](Expected& expected)
    { expected.Throw({L"NstMsgStore.cpp", function}, E_FAIL, L"KIV TIS not configured"); };
    const auto unread = [notConfigured](Expected& expected, long code)
    {
        if (FAILED(code))
            notConfigured(expected);
    };
    Operation operation;
    operation.name = name;
    operation.handler = storeGetProps;
    operation.run = [modify](Surroundings& surroundings) { return ReadStore(surroundings, modify); };
    operation.rules = {
        {"IMsgStore::GetProps", Shape::Mapi, storeGetProps, {}, MAPI_W_ERRORS_RETURNED, true},
        {hook, Shape::Hook},
        {"IMsgStore::GetProps", Shape::Try, {}, {}, S_OK, false, unread, notConfigured},
    };
    // Without memory for the archive root's entry ID there is none.
    operation.withoutMemory = {E_FAIL};
    return operation;
}

ATL::CComQIPtr<IMAPIFolder> WrapReadOnlyFolder(Surroundings& surroundings)
{
    return com_wrap<IMAPIFolder>(new Nst::CReadOnlyFolder(surroundings.folder.As<IMAPIFolder>(),
                                                          surroundings.store.As<IMsgStore>(),
                                                          surroundings.support.As<IMAPISupport>()));
}

ATL::CComQIPtr<IMessage> WrapMessage(Surroundings& surroundings)
{
    return com_wrap<IMessage>(new FaultyMessage(surroundings.message.As<IMessage>()));
}

ATL::CComQIPtr<IMessage> WrapReadOnlyMessage(Surroundings& surroundings)
{
    return com_wrap<IMessage>(new Nst::CReadOnlyMessage(surroundings.message.As<IMessage>()));
}

ATL::CComQIPtr<IAttach> WrapAttachment(Surroundings& surroundings)
{
    return com_wrap<IAttach>(new Nst::CNstAttach(surroundings.attachment.As<IAttach>()));
}

/// GetProps of an object that `wrap` wraps, with the hook of that name, if any; PR_ACCESS comes out as `changed`.
template <class Wrap>
Operation ObjectGetProps(const char* name, const Site& site, Wrap wrap, const char* call, const char* hook,
                         LONG changed)
{
    Operation operation;
    operation.name = name;
    operation.handler = site;
    operation.run = [wrap, changed](Surroundings& surroundings)
    {
        for (FaultyObject* const pst : {&surroundings.folder, &surroundings.message, &surroundings.attachment})
            pst->properties[PR_ACCESS] = NumberValue(PR_ACCESS, access);
        const auto object = wrap(surroundings);
        return ReadProps(surroundings, object,
                         [changed](const SPropValue* values) { EXPECT_EQ(values[0].Value.l, changed); });
    };
    operation.rules = {{call, Shape::Mapi, site, {}, MAPI_W_ERRORS_RETURNED, true}};
    if (hook)
        operation.rules.push_back({hook, Shape::Hook});
    return operation;
}

template <class Open>
HRESULT OpenWith(Surroundings& surroundings, Open&& open)
{
    ATL::CComPtr<IUnknown> object;
    ULONG type = 0xABCD;
    const HRESULT hr = surroundings.Run([&] { return open(&type, &object); });
    const bool nothing = Faults::Get().Planned().effect == Effect::Nothing;
    if (FAILED(hr))
    {
        EXPECT_FALSE(object);
        EXPECT_EQ(type, 0xABCDu);
    }
    else if (!nothing)
    {
        EXPECT_TRUE(object);
        EXPECT_EQ(type, surroundings.openedType);
        EXPECT_TRUE(object != surroundings.opened->As<IUnknown>()) << "not wrapped";
    }
    return hr;
}

HRESULT OpenThroughStore(Surroundings& surroundings)
{
    const ATL::CComQIPtr<IMsgStore> store = WrapStore(surroundings);
    return OpenWith(surroundings, [&](ULONG* type, IUnknown** object)
                    { return store->OpenEntry(0, nullptr, nullptr, 0, type, object); });
}

HRESULT OpenThroughLogon(Surroundings& surroundings)
{
    const ATL::CComQIPtr<IMsgStore> store = WrapStore(surroundings);
    const auto logon = com_wrap<IMSLogon>(new Nst::CNstMsLogon(surroundings.logon.As<IMSLogon>(), store));
    return OpenWith(surroundings, [&](ULONG* type, IUnknown** object)
                    { return logon->OpenEntry(0, nullptr, nullptr, 0, type, object); });
}

std::vector<Rule> OpenRules(const char* query, const wchar_t* complaint, const char* factory)
{
    const auto noInterface = [complaint](Expected& expected, long)
    {
        expected.Log(LogId::Error, complaint);
        expected.Throw(storeOpenEntry, E_NOINTERFACE, ComText(E_NOINTERFACE));
    };
    return {
        {"IMsgStore::OpenEntry", Shape::Pass, {}, L"IMsgStore::OpenEntry", S_OK, true, {}, Succeed},
        {query, Shape::Interface, {}, {}, S_OK, false, noInterface},
        {factory, Shape::Factory},
    };
}

std::vector<Rule> OpenFolderRules()
{
    return OpenRules("IMAPIFolder::QueryInterface",
                     L"OpenEntry returned a MAPI_FOLDER, but the object does not respond to the folder interface",
                     "CreateFolder");
}

/// A folder's method that gives a new object, wrapped.
template <class I, class Call>
Operation FolderMethod(const char* name, const char* callName, const Site& site, Call call)
{
    Operation operation;
    operation.name = name;
    operation.handler = site;
    operation.run = [call](Surroundings& surroundings)
    {
        const ATL::CComQIPtr<IMAPIFolder> folder = WrapFolder(surroundings);
        ATL::CComQIPtr<I> object;
        const HRESULT hr = surroundings.Run([&] { return call(folder.p, &object); });
        EXPECT_EQ(object.p != nullptr, SUCCEEDED(hr));
        return hr;
    };
    operation.rules = {{callName, Shape::Mapi, site, {}, S_OK, false, {}, Succeed}};
    return operation;
}

} // namespace

std::vector<Operation> StoreOperations()
{
    std::vector<Operation> operations = {
        StoreGetProps("store properties", false, "OverrideStoreProperties",
                      L"Quillon::Nst::CNstMsgStore::OverrideStoreProperties"),
        StoreGetProps("store properties while modifiable", true, "OverrideModifiableStoreProperties",
                      L"Quillon::Nst::CNstMsgStore::OverrideModifiableStoreProperties"),
    };

    operations.push_back(ObjectGetProps("folder properties", folderGetProps, WrapFolder, "IMAPIFolder::GetProps",
                                        "OverrideFolderProperties", access));
    operations.push_back(ObjectGetProps("message properties", messageGetProps, WrapMessage, "IMessage::GetProps",
                                        "OverrideMessageProperties", access));
    operations.push_back(ObjectGetProps("attachment properties", attachmentGetProps, WrapAttachment,
                                        "IAttach::GetProps", nullptr, access));
    operations.push_back(ObjectGetProps("read-only folder properties", folderGetProps, WrapReadOnlyFolder,
                                        "IMAPIFolder::GetProps", nullptr, MAPI_ACCESS_READ));
    operations.push_back(ObjectGetProps("read-only message properties", messageGetProps, WrapReadOnlyMessage,
                                        "IMessage::GetProps", nullptr, MAPI_ACCESS_READ));

    Operation refusal;
    refusal.name = "refusal that names the folder";
    refusal.run = [](Surroundings& surroundings)
    {
        surroundings.folder.properties[PR_DISPLAY_NAME_W] = TextValue(PR_DISPLAY_NAME_W, L"100% full");
        const ATL::CComQIPtr<IMAPIFolder> readOnly = WrapReadOnlyFolder(surroundings);
        return surroundings.Run([&] { return readOnly->DeleteMessages(nullptr, 0, nullptr, 0); });
    };
    refusal.rules = {{"IMAPIFolder::GetProps",
                      Shape::Query,
                      {},
                      TagText(PR_DISPLAY_NAME_W),
                      S_OK,
                      false,
                      {},
                      Missing(PR_DISPLAY_NAME_W)}};
    refusal.base = [](Expected& expected)
    {
        expected.Log(LogId::Warning, L"IMAPIFolder::DeleteMessages called on read-only folder; returning "
                                     L"MAPI_E_NO_ACCESS: 100% full");
        expected.result = MAPI_E_NO_ACCESS;
    };
    operations.push_back(refusal);

    Operation openFolder;
    openFolder.name = "open folder";
    openFolder.handler = storeOpenEntry;
    openFolder.run = OpenThroughStore;
    openFolder.rules = OpenFolderRules();
    operations.push_back(openFolder);

    Operation openMessage;
    openMessage.name = "open message";
    openMessage.handler = storeOpenEntry;
    openMessage.run = [](Surroundings& surroundings)
    {
        surroundings.openedType = MAPI_MESSAGE;
        surroundings.opened = &surroundings.message;
        return OpenThroughStore(surroundings);
    };
    openMessage.rules =
        OpenRules("IMessage::QueryInterface",
                  L"OpenEntry returned a MAPI_MESSAGE, but the object does not respond to the message interface",
                  "CreateMessage");
    operations.push_back(openMessage);

    Operation openByLogon;
    openByLogon.name = "open through the logon";
    openByLogon.handler = storeOpenEntry;
    openByLogon.run = OpenThroughLogon;
    openByLogon.rules = OpenFolderRules();
    openByLogon.finally = [](Expected& expected)
    {
        if (expected.result != S_OK)
            expected.Log(FAILED(expected.result) ? LogId::Error : LogId::Warning,
                         MapiText(expected.result, L"IMSLogon::OpenEntry"));
    };
    operations.push_back(openByLogon);

    operations.push_back(FolderMethod<IMAPITable>("contents table", "IMAPIFolder::GetContentsTable", contentsTable,
                                                  [](IMAPIFolder* folder, IMAPITable** table)
                                                  { return folder->GetContentsTable(0, table); }));
    operations.push_back(FolderMethod<IMAPITable>("hierarchy table", "IMAPIFolder::GetHierarchyTable", hierarchyTable,
                                                  [](IMAPIFolder* folder, IMAPITable** table)
                                                  { return folder->GetHierarchyTable(0, table); }));
    operations.push_back(FolderMethod<IMessage>("create message", "IMAPIFolder::CreateMessage", createMessage,
                                                [](IMAPIFolder* folder, IMessage** message)
                                                { return folder->CreateMessage(nullptr, 0, message); }));
    operations.push_back(FolderMethod<IMAPIFolder>(
        "create folder", "IMAPIFolder::CreateFolder", createFolder, [](IMAPIFolder* folder, IMAPIFolder** created)
        { return folder->CreateFolder(FOLDER_GENERIC, nullptr, nullptr, nullptr, 0, created); }));

    Operation queryRows;
    queryRows.name = "table rows";
    queryRows.run = [](Surroundings& surroundings)
    {
        const auto table = com_wrap<IMAPITable>(new Nst::CNstMapiTable(surroundings.table.As<IMAPITable>()));
        SRowSet* rows = nullptr;
        const HRESULT hr = surroundings.Run([&] { return table->QueryRows(10, 0, &rows); });
        EXPECT_EQ(rows != nullptr, SUCCEEDED(hr));
        if (rows)
            MapiModule::Get().Free(rows);
        return hr;
    };
    queryRows.rules = {{"IMAPITable::QueryRows", Shape::Pass, {}, L"IMAPITable::QueryRows", S_OK, true}};
    queryRows.isPassThrough = true;
    operations.push_back(queryRows);
    return operations;
}

} // namespace Tests

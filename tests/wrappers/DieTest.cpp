// The end of the process on the failures that a host has declared fatal, and no end on any other.
#include "support/Die.h"
#include "nst/NstAttach.h"
#include "nst/NstMapiFolder.h"
#include "nst/NstMessage.h"
#include "nst/NstMsgStore.h"
#include "tests/wrappers/Setting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

using namespace Quillon::Nst;
using testing::Return;

namespace Tests
{
namespace
{

/// A method that ends the process, called over a double that fails with `hr`.
struct FatalMethod
{
    const char* name;
    const char* file;
    HRESULT (*call)(HRESULT hr);
};

void PrintTo(const FatalMethod& row, std::ostream* stream)
{
    *stream << row.name;
}

template <class Double>
void Fail(Double& object, HRESULT hr)
{
    GiveExtendedError(object, hr, L"no space left", L"pst", 112, 7);
}

template <class Wrapper, class Double>
HRESULT CallGetProps(HRESULT hr)
{
    const auto pst = MakeNice<Double>();
    Fail(*pst, hr);
    ON_CALL(*pst, GetProps).WillByDefault(Return(hr));
    Values values;
    if constexpr (std::is_same_v<Wrapper, CNstMsgStore>)
        return values.Read(Wrap<Wrapper>(pst.Get(), nullptr));
    else if constexpr (std::is_same_v<Wrapper, CNstMapiFolder>)
        return values.Read(Wrap<Wrapper>(pst.Get(), nullptr, nullptr));
    else
        return values.Read(Wrap<Wrapper>(pst.Get()));
}

/// Calls a method of a folder whose PST folder fails with `hr` at `call`.
template <class Call, class Tell>
HRESULT CallFolder(HRESULT hr, Tell&& tell, Call&& call)
{
    const auto pst = MakeNice<FolderDouble>();
    Fail(*pst, hr);
    tell(*pst);
    return call(*Wrap<CNstMapiFolder>(pst.Get(), nullptr, nullptr));
}

const FatalMethod methods[] = {
    {"CNstMsgStore::GetProps", "NstMsgStore", CallGetProps<CNstMsgStore, StoreDouble>},
    {"CNstMapiFolder::GetProps", "NstMapiFolder", CallGetProps<CNstMapiFolder, FolderDouble>},
    {"CNstMessage::GetProps", "NstMessage", CallGetProps<CNstMessage, MessageDouble>},
    {"CNstAttach::GetProps", "NstAttach", CallGetProps<CNstAttach, AttachDouble>},
    {"CNstMapiFolder::GetContentsTable", "NstMapiFolder",
     [](HRESULT hr)
     {
         IMAPITable* table = nullptr;
         return CallFolder(
             hr, [hr](FolderDouble& pst) { ON_CALL(pst, GetContentsTable).WillByDefault(Return(hr)); },
             [&](IMAPIFolder& folder) { return folder.GetContentsTable(0, &table); });
     }},
    {"CNstMapiFolder::GetHierarchyTable", "NstMapiFolder",
     [](HRESULT hr)
     {
         IMAPITable* table = nullptr;
         return CallFolder(
             hr, [hr](FolderDouble& pst) { ON_CALL(pst, GetHierarchyTable).WillByDefault(Return(hr)); },
             [&](IMAPIFolder& folder) { return folder.GetHierarchyTable(0, &table); });
     }},
    {"CNstMapiFolder::CreateMessage", "NstMapiFolder",
     [](HRESULT hr)
     {
         IMessage* message = nullptr;
         return CallFolder(
             hr, [hr](FolderDouble& pst) { ON_CALL(pst, CreateMessage).WillByDefault(Return(hr)); },
             [&](IMAPIFolder& folder) { return folder.CreateMessage(nullptr, 0, &message); });
     }},
    {"CNstMapiFolder::CreateFolder", "NstMapiFolder",
     [](HRESULT hr)
     {
         IMAPIFolder* created = nullptr;
         return CallFolder(
             hr, [hr](FolderDouble& pst) { ON_CALL(pst, CreateFolder).WillByDefault(Return(hr)); },
             [&](IMAPIFolder& folder)
             { return folder.CreateFolder(FOLDER_GENERIC, nullptr, nullptr, nullptr, 0, &created); });
     }},
};

/// Tells on standard error that the host's handler was called, and with which code.
void __stdcall TellOfTheEnd(void* context, unsigned code)
{
    std::fprintf(stderr, "%s %08X\n", static_cast<const char*>(context), code);
    std::fflush(stderr);
}

struct Switches
{
    bool network;
    bool memory;
    bool corruptStore;
};

void SetSwitches(const Switches& switches)
{
    Quillon::Mapi::GetDieOnNetworkErrors() = switches.network;
    Quillon::Mapi::GetDieOnOutOfMemoryErrors() = switches.memory;
    Quillon::Mapi::GetDieOnCorruptStore() = switches.corruptStore;
}

/// In the child of a death test.
void Die(const FatalMethod& method, HRESULT hr, const Switches& switches)
{
    static char word[] = "the host is told";
    SetSwitches(switches);
    LogToStandardError();
    Quillon::SetDieHandler(TellOfTheEnd, word);
    method.call(hr);
}

/// A regular expression for `text` as it stands; GoogleTest's own kind has no brackets, which any character stands for.
std::string Literally(const std::wstring& text)
{
    std::string expression;
    for (const char character : Narrow(text))
    {
        const bool isBracket = std::string_view("[]{}").find(character) != std::string_view::npos;
        if (std::string_view("\\.()+*?^$|").find(character) != std::string_view::npos)
            expression += '\\';
        expression += isBracket ? '.' : character;
    }
    return expression;
}

/// What the child writes: the failure with its extended error, the event, the host's handler, in this order.
std::string ExpectedEnd(const FatalMethod& method, HRESULT hr)
{
    wchar_t text[] = L"no space left";
    wchar_t component[] = L"pst";
    const MAPIERROR error = {MAPI_ERROR_VERSION, text, component, 112, 7};
    char code[16] = {};
    std::snprintf(code, sizeof(code), "%08lX", static_cast<ULONG>(hr));
    return "error: " + Literally(Quillon::Mapi::FormatMapiError(hr, L"", &error).GetString()) +
           "\\s+error: Exiting process at " + method.file + "\\.cpp, Quillon::Nst::" + method.name +
           ", line \\d+: " + Literally(Quillon::FormatSystemError(static_cast<unsigned>(hr), true).GetString()) +
           "\\s+the host is told " + code;
}

constexpr HRESULT fatalCodes[] = {MAPI_E_NETWORK_ERROR, MAPI_E_TOO_BIG, MAPI_E_NOT_ENOUGH_MEMORY, MAPI_E_CORRUPT_STORE};

Switches SwitchFor(HRESULT hr)
{
    return {hr == MAPI_E_NETWORK_ERROR, hr == MAPI_E_TOO_BIG || hr == MAPI_E_NOT_ENOUGH_MEMORY,
            hr == MAPI_E_CORRUPT_STORE};
}

class FatalMethodDeathTest : public testing::TestWithParam<FatalMethod>
{
};

TEST_P(FatalMethodDeathTest, EndsTheProcessWithTheCode)
{
    EXPECT_EXIT(Die(GetParam(), MAPI_E_CORRUPT_STORE, SwitchFor(MAPI_E_CORRUPT_STORE)),
                testing::ExitedWithCode(static_cast<int>(MAPI_E_CORRUPT_STORE)),
                ExpectedEnd(GetParam(), MAPI_E_CORRUPT_STORE));
}

TEST_P(FatalMethodDeathTest, ReturnsEveryCodeWhoseSwitchIsOff)
{
    for (const HRESULT hr : fatalCodes)
    {
        const Switches own = SwitchFor(hr);
        SetSwitches({!own.network, !own.memory, !own.corruptStore});
        EXPECT_EQ(GetParam().call(hr), hr);
    }
    SetSwitches({true, true, true});
    for (const HRESULT hr : {MAPI_E_CALL_FAILED, MAPI_E_CORRUPT_DATA, MAPI_E_NOT_FOUND,
                             static_cast<HRESULT>(0x80040116), static_cast<HRESULT>(0x80040304)})
        EXPECT_EQ(GetParam().call(hr), hr);
    SetSwitches({false, false, false});
}

INSTANTIATE_TEST_SUITE_P(Methods, FatalMethodDeathTest, testing::ValuesIn(methods),
                         [](const auto& method)
                         {
                             std::string name = method.param.name;
                             name.replace(name.find("::"), 2, "_");
                             return name;
                         });

class FatalCodeDeathTest : public testing::TestWithParam<HRESULT>
{
};

TEST_P(FatalCodeDeathTest, EndsTheProcessWithItself)
{
    EXPECT_EXIT(Die(methods[0], GetParam(), SwitchFor(GetParam())),
                testing::ExitedWithCode(static_cast<int>(GetParam())), ExpectedEnd(methods[0], GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Codes, FatalCodeDeathTest, testing::ValuesIn(fatalCodes),
                         [](const auto& code)
                         {
                             char name[16] = {};
                             std::snprintf(name, sizeof(name), "%08lX", static_cast<ULONG>(code.param));
                             return std::string(name);
                         });

TEST(FatalCodes, DoNotEndTheProcessInAForwardedCall)
{
    const auto pst = MakeNice<MessageDouble>();
    const auto message = Wrap<CNstMessage>(pst.Get());
    SetSwitches({true, true, true});
    for (const HRESULT hr : fatalCodes)
    {
        EXPECT_CALL(*pst, SaveChanges).WillOnce(Return(hr));
        EXPECT_EQ(message->SaveChanges(0), hr);
    }
    SetSwitches({false, false, false});
}

} // namespace
} // namespace Tests

// The shape of CNstMessageService, and the names of its contexts.
#include "nst/NstMessageService.h"

#include "nst/NstMapiSupport.h"
#include "tests/common/LogCapture.h"
#include "tests/units/ServiceSetting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

using namespace Quillon;
using Nst::CNstMessageService;
using Tests::Text;

namespace
{

static_assert(sizeof(CNstMessageService) == sizeof(void*), "it holds no data");
static_assert(!std::has_virtual_destructor_v<CNstMessageService>, "a destructor would take a slot");
static_assert(std::is_abstract_v<CNstMessageService>);
static_assert(std::is_copy_constructible_v<Tests::Host> && std::is_copy_assignable_v<Tests::Host> &&
              std::is_move_constructible_v<Tests::Host> && std::is_move_assignable_v<Tests::Host>);

/// Makes the operations reachable whose slots are looked at; overrides none of them but the pure ones.
class Slots : public CNstMessageService
{
public:
    StringW GetProviderDllName() override { return StringW(); }
    ATL::CComQIPtr<IMSProvider> CreateMsProvider(const ATL::CComQIPtr<IMSProvider>& provider) override
    {
        return provider;
    }
    using CNstMessageService::ConfigureService;
    using CNstMessageService::CreateMapiSupport;
    using CNstMessageService::GetProfileSectionConfiguration;

    /// Where in the virtual table the operation behind a member pointer stands, counted from 1: a pointer to a virtual
    /// member holds 1 plus its offset in the table.
    template <class Method>
    static std::size_t SlotOf(Method method)
    {
        std::uintptr_t offset = 0;
        std::memcpy(&offset, &method, sizeof(offset));
        EXPECT_EQ(offset % sizeof(void*), 1u) << "not a virtual operation";
        return offset / sizeof(void*) + 1;
    }
};

void* const* TableOf(const CNstMessageService& service)
{
    return *reinterpret_cast<void* const* const*>(&service);
}

} // namespace

TEST(CNstMessageService, HasItsOperationsInTheirSlots)
{
    EXPECT_EQ(Slots::SlotOf(&Slots::GetProviderDllName), 1u);
    EXPECT_EQ(Slots::SlotOf(&Slots::NstServiceEntry), 2u);
    EXPECT_EQ(Slots::SlotOf(&Slots::NstProviderInit), 3u);
    EXPECT_EQ(Slots::SlotOf(&Slots::CreateMapiSupport), 4u);
    EXPECT_EQ(Slots::SlotOf(&Slots::ConfigureService), 5u);
    EXPECT_EQ(Slots::SlotOf(&Slots::GetProfileSectionConfiguration), 6u);
    EXPECT_EQ(Slots::SlotOf(&Slots::CreateMsProvider), 7u);
}

TEST(CNstMessageService, SharesTheSlotsThatAHostDoesNotOverride)
{
    const Slots slots;
    const Tests::Host host;
    void* const* const plain = TableOf(slots);
    void* const* const overridden = TableOf(host);
    // 1, 4, 5, 6 and 7 are the host's own there; 2 and 3 stay the library's.
    const bool same[] = {false, true, true, false, false, false, false};
    for (std::size_t slot = 0; slot < std::size(same); ++slot)
        EXPECT_EQ(plain[slot] == overridden[slot], same[slot]) << "slot " << slot + 1;
}

TEST(CNstMessageService, CanBeCopiedAndMovedForItHoldsNothing)
{
    Slots first;
    Slots copy(first);
    Slots moved(std::move(first));
    copy = moved;
    moved = std::move(copy);
    EXPECT_EQ(TableOf(moved), TableOf(first)); // NOLINT(bugprone-use-after-move): there is nothing to take
}

TEST(CNstMessageService, MakesAWrappedSupportObjectOverBoth)
{
    const Tests::LogCapture log;
    const auto support = Tests::MakeNice<Tests::SupportDouble>();
    const auto section = Tests::MakeNice<Tests::ProfileSectionDouble>();
    Slots service;
    {
        const ATL::CComQIPtr<IMAPISupport> wrapped = service.CreateMapiSupport(support.Get(), section.Get());
        ASSERT_TRUE(wrapped.p);
        EXPECT_NE(wrapped.p, support.Get());
        EXPECT_EQ(support->References(), 2u);
        EXPECT_EQ(section->References(), 2u);
        // It is the object whose count starts at one.
        EXPECT_EQ(wrapped.p->AddRef(), 2u);
        EXPECT_EQ(wrapped.p->Release(), 1u);
        // And it gives the section for the UID by which the PST provider asks for it.
        MAPIUID uid = Nst::globalProfileSectionUid;
        ATL::CComQIPtr<IProfSect> given;
        EXPECT_EQ(wrapped->OpenProfileSection(&uid, 0, &given), S_OK);
        EXPECT_EQ(given.p, section.Get());
    }
    EXPECT_EQ(support->References(), 1u);
    EXPECT_EQ(section->References(), 1u);
}

TEST(CNstMessageService, MakesNoSettingsOfItsOwn)
{
    SPropValue value = {};
    value.ulPropTag = PR_PRIORITY;
    Slots service;
    EXPECT_TRUE(service.GetProfileSectionConfiguration(&value, 1).IsEmpty());
    EXPECT_TRUE(service.GetProfileSectionConfiguration(nullptr, 5).IsEmpty());
}

TEST(FormatMessageServiceContext, NamesTheContexts)
{
    const struct
    {
        ULONG context;
        const wchar_t* expected;
    } table[] = {
        {1, L"MSG_SERVICE_INSTALL"},
        {2, L"MSG_SERVICE_CREATE"},
        {3, L"MSG_SERVICE_CONFIGURE"},
        {4, L"MSG_SERVICE_DELETE"},
        {5, L"MSG_SERVICE_UNINSTALL"},
        {6, L"MSG_SERVICE_PROVIDER_CREATE"},
        {7, L"MSG_SERVICE_PROVIDER_DELETE"},
        {0, L"Unknown (0)"},
        {8, L"Unknown (8)"},
        {0xFFFFFFFF, L"Unknown (4294967295)"},
    };
    for (const auto& row : table)
        EXPECT_EQ(Text(Mapi::FormatMessageServiceContext(row.context)), row.expected);
}

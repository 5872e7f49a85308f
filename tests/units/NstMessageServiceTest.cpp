// The shape of CNstMessageService, and the names of its contexts.
#include "nst/NstMessageService.h"

#include "nst/NstMapiSupport.h"
#include "tests/common/LogCapture.h"
#include "tests/units/ServiceSetting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>
#include <utility>
#include <vector>

using namespace Quillon;
using Nst::CNstMessageService;
using testing::ElementsAre;
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
};

void* const* TableOf(const CNstMessageService& service)
{
    return *reinterpret_cast<void* const* const*>(&service);
}

// One class for each operation, which overrides that alone.

struct OwnName : Slots
{
    StringW GetProviderDllName() override { return L"another"; }
};

struct OwnEntry : Slots
{
    void NstServiceEntry(IMalloc*, IMAPISupport*, ULONG, ULONG, ULONG, ULONG, SPropValue*, IProviderAdmin*,
                         MAPIERROR**) override
    {
    }
};

struct OwnInit : Slots
{
    void NstProviderInit(IMalloc*, LPALLOCATEBUFFER, LPALLOCATEMORE, LPFREEBUFFER, ULONG, ULONG, ULONG*,
                         IMSProvider**) override
    {
    }
};

struct OwnSupport : Slots
{
    ATL::CComQIPtr<IMAPISupport> CreateMapiSupport(const ATL::CComQIPtr<IMAPISupport>& support,
                                                   const ATL::CComQIPtr<IProfSect>&) override
    {
        return support;
    }
};

struct OwnConfiguring : Slots
{
    void ConfigureService(const ATL::CComQIPtr<IMAPISupport>&, const ATL::CComQIPtr<IProfSect>&,
                          const ATL::CComQIPtr<IProviderAdmin>&, const Mapi::SPropValueVector&) override
    {
    }
};

struct OwnConfiguration : Slots
{
    Mapi::SPropValueVector GetProfileSectionConfiguration(SPropValue*, ULONG) override { return {}; }
};

struct OwnProvider : Slots
{
    ATL::CComQIPtr<IMSProvider> CreateMsProvider(const ATL::CComQIPtr<IMSProvider>&) override { return nullptr; }
};

constexpr std::size_t slotCount = 7;

/// Which slots of the virtual table the class makes its own, counted from 1.
template <class Service>
std::vector<std::size_t> OwnSlots()
{
    const Slots slots;
    const Service service;
    std::vector<std::size_t> own;
    for (std::size_t slot = 0; slot < slotCount; ++slot)
        if (TableOf(slots)[slot] != TableOf(service)[slot])
            own.push_back(slot + 1);
    return own;
}

} // namespace

TEST(CNstMessageService, HasItsOperationsInTheirSlots)
{
    EXPECT_THAT(OwnSlots<OwnName>(), ElementsAre(1));
    EXPECT_THAT(OwnSlots<OwnEntry>(), ElementsAre(2));
    EXPECT_THAT(OwnSlots<OwnInit>(), ElementsAre(3));
    EXPECT_THAT(OwnSlots<OwnSupport>(), ElementsAre(4));
    EXPECT_THAT(OwnSlots<OwnConfiguring>(), ElementsAre(5));
    EXPECT_THAT(OwnSlots<OwnConfiguration>(), ElementsAre(6));
    EXPECT_THAT(OwnSlots<OwnProvider>(), ElementsAre(7));
}

TEST(CNstMessageService, SharesTheSlotsThatAHostDoesNotOverride)
{
    const Slots slots;
    const Tests::Host host;
    void* const* const plain = TableOf(slots);
    void* const* const overridden = TableOf(host);
    // 1, 4, 5, 6 and 7 are the host's own there; 2 and 3 stay the library's.
    const bool same[slotCount] = {false, true, true, false, false, false, false};
    for (std::size_t slot = 0; slot < slotCount; ++slot)
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
